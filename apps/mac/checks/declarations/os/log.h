// The unified log (os/log.h), as the Mac layer uses it: declarations for the Objective-C++
// check only. On a Mac os_log_with_type is a macro that checks its format at compile time.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct os_log_s* os_log_t;
typedef uint8_t os_log_type_t;
enum : os_log_type_t { OS_LOG_TYPE_DEFAULT = 0x00, OS_LOG_TYPE_INFO = 0x01, OS_LOG_TYPE_DEBUG = 0x02, OS_LOG_TYPE_ERROR = 0x10 };

extern struct os_log_s _os_log_default;
#define OS_LOG_DEFAULT (&_os_log_default)

os_log_t os_log_create(const char* subsystem, const char* category);
bool os_log_type_enabled(os_log_t log, os_log_type_t type);
void os_log_with_type(os_log_t log, os_log_type_t type, const char* format, ...);

#ifdef __cplusplus
}
#endif
