// The stack's support library: thread last error, time conversions, code pages, trace.
#pragma once

#include "qvcapi/cert.h"
#include "qvcapi/types.h"

#include <wchar.h>

typedef struct _SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
} SYSTEMTIME, *PSYSTEMTIME, *LPSYSTEMTIME;

#define CP_ACP 0u
#define CP_UTF8 65001u

// Opaque trace context of the support library.
typedef struct TSupportDbContext_ TSupportDbContext_;

QVCAPI_BEGIN_C

QVCAPI_API DWORD GetLastError(void);
QVCAPI_API void SetLastError(DWORD dwErrCode);

QVCAPI_API BOOL FileTimeToSystemTime(const FILETIME* lpFileTime, LPSYSTEMTIME lpSystemTime);
QVCAPI_API BOOL SystemTimeToFileTime(const SYSTEMTIME* lpSystemTime, LPFILETIME lpFileTime);

QVCAPI_API int MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr,
                                   int cbMultiByte, LPWSTR lpWideCharStr, int cchWideChar);
QVCAPI_API int WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWSTR lpWideCharStr,
                                   int cchWideChar, LPSTR lpMultiByteStr, int cbMultiByte,
                                   LPCSTR lpDefaultChar, BOOL* lpUsedDefaultChar);
QVCAPI_API size_t safe_wcsrtombs(char* dst, const wchar_t** src, size_t len, mbstate_t* ps);

// The library's trace context; null means no trace at all.
QVCAPI_API extern TSupportDbContext_* chainvet_db_ctx;

QVCAPI_API int support_print_is(TSupportDbContext_* context, DWORD mask);
QVCAPI_API void support_dprint_print_(TSupportDbContext_* context, const char* format,
                                      const char* prefix, int line, const char* function, ...)
    __attribute__((format(printf, 2, 6)));
QVCAPI_API TSupportDbContext_* support_print_init(int flags, const char* name, int arg, DWORD mask);
QVCAPI_API void support_print_done(TSupportDbContext_* context);

// Stand-in extension: a context that keeps its lines in memory (for tests), and access to
// them. Each kept line is "function|text" with the formatted text as printed.
QVCAPI_API TSupportDbContext_* support_print_init_memory(const char* name, DWORD mask);
QVCAPI_API const char* support_print_memory_text(TSupportDbContext_* context);
QVCAPI_API void support_print_memory_clear(TSupportDbContext_* context);

QVCAPI_END_C
