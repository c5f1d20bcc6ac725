// Reading the files a run is given (the program and the --inputs table):
// regular files only, and no more than a size limit.
//
// A directory, a device such as /dev/zero or a FIFO given by mistake would
// otherwise fail deep inside a stream, be read until memory runs out, or
// block the runner forever waiting for a writer.
#ifndef QZRUN_INPUT_FILE_H
#define QZRUN_INPUT_FILE_H

#include <cstdint>
#include <string>

namespace qzrun {

constexpr uint64_t kDefaultMaxFileBytes = 64ull << 20;

// Reads the whole of `path` into `bytes`. Fails, with `error` saying why
// ("cannot read 'PATH': ..."), for anything but a regular file of at most
// `maxBytes` bytes. Never blocks on a FIFO.
bool ReadInputFile(const std::string& path, uint64_t maxBytes, std::string& bytes, std::string& error);

// "64 MB", "1.5 KB", "300 bytes": a limit as people read it.
std::string DescribeSize(uint64_t bytes);

}  // namespace qzrun

#endif
