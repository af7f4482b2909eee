// Whole reads and writes over descriptors: the loops that interrupted calls
// and short transfers make necessary, written once.
#pragma once

#include <stddef.h>
#include <sys/types.h>

#include <string>

namespace pelk {

// Writes all n bytes, retrying interrupted and short writes. True on success.
bool writeFully(int fd, const void* data, size_t n);

// Reads n bytes unless the end or an error comes first, retrying interrupted
// reads. Returns the number of bytes read (0 for n == 0), or -1 when an
// error came before any byte.
ssize_t readFully(int fd, void* data, size_t n);

// Appends everything up to the end of fd to out. True on success.
bool readAll(int fd, std::string* out);

}  // namespace pelk
