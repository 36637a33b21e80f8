// Trace contexts of the support library. A context either prints to stderr or keeps
// its lines in memory; printing never changes the thread's last error or errno.
#include "qvcapi/support.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

struct TSupportDbContext_ {
    std::string name;
    DWORD mask = 0;
    bool memory = false;
    std::mutex lock;
    std::string text;
};

extern "C" {

TSupportDbContext_* chainvet_db_ctx = nullptr;

int support_print_is(TSupportDbContext_* context, DWORD mask) {
    return context != nullptr && (context->mask & mask) != 0;
}

void support_dprint_print_(TSupportDbContext_* context, const char* format, const char* prefix,
                           int line, const char* function, ...) {
    if (context == nullptr || format == nullptr)
        return;
    const DWORD savedLastError = GetLastError();
    const int savedErrno = errno;

    char stackBuf[512];
    std::string heapBuf;
    va_list ap;
    va_start(ap, function);
    va_list ap2;
    va_copy(ap2, ap);
    int n = std::vsnprintf(stackBuf, sizeof stackBuf, format, ap);
    va_end(ap);
    const char* body = stackBuf;
    if (n >= static_cast<int>(sizeof stackBuf)) {
        heapBuf.resize(static_cast<size_t>(n) + 1);
        std::vsnprintf(&heapBuf[0], heapBuf.size(), format, ap2);
        heapBuf.resize(static_cast<size_t>(n));
        body = heapBuf.c_str();
    } else if (n < 0) {
        body = format;
    }
    va_end(ap2);

    const char* fn = function ? function : "";
    if (context->memory) {
        std::lock_guard<std::mutex> guard(context->lock);
        context->text += fn;
        context->text += '|';
        context->text += body;
    } else {
        std::fprintf(stderr, "[%s] %s%s(%d): %s", context->name.c_str(), prefix ? prefix : "", fn,
                     line, body);
        size_t len = std::strlen(body);
        if (len == 0 || body[len - 1] != '\n')
            std::fputc('\n', stderr);
    }
    errno = savedErrno;
    SetLastError(savedLastError);
}

TSupportDbContext_* support_print_init(int /*flags*/, const char* name, int /*arg*/, DWORD mask) {
    auto* ctx = new TSupportDbContext_;
    ctx->name = name ? name : "";
    ctx->mask = mask;
    return ctx;
}

void support_print_done(TSupportDbContext_* context) { delete context; }

TSupportDbContext_* support_print_init_memory(const char* name, DWORD mask) {
    TSupportDbContext_* ctx = support_print_init(0, name, 0, mask);
    ctx->memory = true;
    return ctx;
}

const char* support_print_memory_text(TSupportDbContext_* context) {
    return context ? context->text.c_str() : "";
}

void support_print_memory_clear(TSupportDbContext_* context) {
    if (context) {
        std::lock_guard<std::mutex> guard(context->lock);
        context->text.clear();
    }
}

} // extern "C"
