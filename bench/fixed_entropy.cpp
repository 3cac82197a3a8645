// SPDX-License-Identifier: Apache-2.0
// getrandom(2) and arc4random_buf(3) that return the same bytes in every process, preloaded by
// scripts/bench-instructions.sh into both sides of an instruction count. expat salts its hash
// tables from one of them at each parser's creation, and the salt decides how often the names of
// a document collide, which moves a count by up to 1% from one process to the next; with one
// salt for every process the load and the least-work loop do the same expat work and their
// counts repeat exactly. Only for counting: never linked into anything else.

#include <sys/types.h>

#include <cstddef>
#include <cstring>

extern "C" ssize_t getrandom(void* buffer, size_t length, unsigned int /*flags*/) {
    std::memset(buffer, 0x5A, length);
    return static_cast<ssize_t>(length);
}

extern "C" void arc4random_buf(void* buffer, size_t length) {
    std::memset(buffer, 0x5A, length);
}
