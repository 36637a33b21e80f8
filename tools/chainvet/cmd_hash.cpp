// chainvet hash: a file's digest through the library's provider search.
#include "certid.h"
#include "command.h"
#include "common.h"

#include <cstdio>
#include <string>

using namespace chainvet_tool;

namespace {

const char* kHelp =
    "usage: chainvet hash [--alg OID] FILE...\n\n"
    "The digest of each FILE, hashed by MakeHash through the provider that knows the\n"
    "algorithm; printed as `sha256sum` prints, lower-case hex, two blanks, the name.\n\n"
    "  --alg OID     hash algorithm, dotted or by name (sha1, sha256, sha384, sha512, md5,\n"
    "                gost94, streebog256, streebog512); default SHA-1\n\n"
    "Exit status: 0 done, 2 a file could not be read or hashed, 64 bad usage.\n";

int run(const std::vector<std::string>& args);

const Command kCommand{"hash", "digest of files through the provider path", kHelp, run};
Registrar s_register(kCommand);

int run(const std::vector<std::string>& args) {
    std::string oid = "1.3.14.3.2.26";
    std::vector<std::string> files;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--alg") {
            if (i + 1 >= args.size())
                return usage(kCommand, "--alg needs an algorithm");
            oid = hashOid(args[++i]);
            if (oid.empty())
                return usage(kCommand, "unknown hash algorithm " + args[i]);
        } else if (!args[i].empty() && args[i][0] == '-' && args[i] != "-") {
            return usage(kCommand, "unknown option " + args[i]);
        } else {
            files.push_back(args[i]);
        }
    }
    if (files.empty())
        return usage(kCommand, "no file given");
    const ALG_ID alg = CertOIDToAlgId(oid.c_str());
    int status = kPass;
    for (const std::string& file : files) {
        try {
            Quorvane::CBlob data;
            data.readFromFile(file.c_str());
            const Quorvane::CBlob digest = Quorvane::MakeHash(0, alg, data, nullptr);
            std::string hex = hexUpper(digest.pbData(), digest.cbData());
            for (char& c : hex)
                c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            std::printf("%s  %s\n", hex.c_str(), file.c_str());
        } catch (const ATL::CAtlException& e) {
            std::fprintf(stderr, "chainvet hash: %s: %s\n", file.c_str(),
                         describeError(static_cast<DWORD>(e.m_hr)).c_str());
            status = kCouldNotRun;
        }
    }
    return status;
}

}  // namespace
