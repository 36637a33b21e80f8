#!/bin/sh
# Hand-written lines of code and of tests, and their ratio. No build needed.
# Usage: tools/stats.sh (or tools/dev stats)
# Counted: non-blank lines (comments included) of .cpp .h .c .py .sh .cmake CMakeLists.txt
# and of extension-less shell/Python scripts (tools/dev). Not counted: build/ (where the
# generated sources go), tests/fixtures, fuzz/corpus, ../shared/corpus, the top-level
# CMakeLists.txt, cmake/ and .ci/.
set -eu
cd "$(dirname "$0")/.."

# Prints "AREA KIND PATH" for every counted file under the given folders.
list() {  # area folder...
    area=$1
    shift
    for dir in "$@"; do
        [ -d "$dir" ] || continue
        find "$dir" \( -path fuzz/corpus -o -path tests/fixtures -o -name build \
                -o -name __pycache__ -o -name '.*' \) -prune -o -type f -print |
            LC_ALL=C sort |
            while IFS= read -r f; do
                case "$f" in
                *.cpp | *.h | *.c) kind=cxx ;;
                *.py | *.sh) kind=script ;;
                *.cmake | */CMakeLists.txt) kind=cmake ;;
                */*.*) continue ;;
                *)
                    case "$(head -n 1 "$f" 2>/dev/null)" in
                    '#!'*sh* | '#!'*python*) kind=script ;;
                    *) continue ;;
                    esac
                    ;;
                esac
                printf '%s %s %s\n' "$area" "$kind" "$f"
            done
    done
}

{
    list library core asn1rt asn1data pki policies
    list stand-in platform
    list tools tools
    list bench+fuzz bench fuzz
    list tests tests
} | awk '
{
    area = $1; kind = $2; path = substr($0, length($1) + length($2) + 3)
    n = 0
    while ((getline line < path) > 0)
        if (line ~ /[^ \t\r\f\v]/) n++
    close(path)
    files[area]++; lines[area, kind] += n; total[area] += n
}
function row(name, f, c, s, m, t) {
    printf "%-12s %6d %8d %8d %8d %8d\n", name, f, c, s, m, t
}
function arow(a) {
    row(a, files[a], lines[a, "cxx"], lines[a, "script"], lines[a, "cmake"], total[a])
}
END {
    print "non-blank lines (comments included) of .cpp .h .c, .py .sh and extension-less scripts,"
    print ".cmake and CMakeLists.txt; not counted: build/ and generated sources, tests/fixtures,"
    print "fuzz/corpus, ../shared/corpus, the top-level CMakeLists.txt, cmake/, .ci/"
    print ""
    printf "%-12s %6s %8s %8s %8s %8s\n", "area", "files", "C/C++", "scripts", "cmake", "lines"
    n = split("library stand-in tools bench+fuzz", code, " ")
    for (i = 1; i <= n; i++) {
        a = code[i]; arow(a)
        cf += files[a]; cc += lines[a, "cxx"]; cs += lines[a, "script"]
        cm += lines[a, "cmake"]; ct += total[a]
    }
    row("code", cf, cc, cs, cm, ct)
    arow("tests")
    print ""
    printf "tests/code: %d / %d = %.1f%%\n", total["tests"], ct, ct ? 100 * total["tests"] / ct : 0
}'
