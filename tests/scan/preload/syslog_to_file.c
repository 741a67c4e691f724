// SPDX-License-Identifier: LGPL-2.1-or-later
/* Writes what goes to syslog to the file named by SYSLOG_FILE, a line a message. */
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

static void append(const char* format, va_list arguments)
{
    const char* path = getenv("SYSLOG_FILE");
    FILE* file = path ? fopen(path, "ae") : NULL;
    if (file) {
        vfprintf(file, format, arguments);
        fputc('\n', file);
        fclose(file);
    }
}

void vsyslog(int priority, const char* format, va_list arguments)
{
    (void)priority;
    append(format, arguments);
}

void syslog(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments)
{
    (void)flag;
    vsyslog(priority, format, arguments);
}

void __syslog_chk(int priority, int flag, const char* format, ...)
{
    va_list arguments;
    (void)flag;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}
