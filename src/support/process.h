#ifndef KOR_SUPPORT_PROCESS_H
#define KOR_SUPPORT_PROCESS_H

#include <cstdint>

/// The process's first argument ("Unknown" when it cannot be read), cut to size - 1 characters.
/// Returns the text's length. A buffer too small for "Unknown" stays empty.
int korGetCurrentProcessName(char* buffer, unsigned size);

/// The path of the process's executable. Returns its length, at most size - 1, or -1.
int korGetCurrentProcessExe(char* buffer, unsigned size);

/// Wall-clock time in milliseconds.
uint64_t korGetCurrentTime();

#endif
