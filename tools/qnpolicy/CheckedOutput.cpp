#include "CheckedOutput.h"

#include <unistd.h>

#include <cerrno>

namespace qnpolicy::tool {

CCheckedOutputBuffer::CCheckedOutputBuffer(int fd) : m_fd(fd) {
    setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
}

CCheckedOutputBuffer::~CCheckedOutputBuffer() {
    drain();
}

bool CCheckedOutputBuffer::drain() {
    const char* next = pbase();
    const char* const end = pptr();
    while (m_error == 0 && next < end) {
        const ssize_t written = ::write(m_fd, next, static_cast<size_t>(end - next));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            m_error = errno;
            break;
        }
        next += written;
    }
    // After a failure the bytes are dropped: nobody can receive them any more.
    setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
    return m_error == 0;
}

CCheckedOutputBuffer::int_type CCheckedOutputBuffer::overflow(int_type c) {
    if (!drain()) {
        return traits_type::eof();
    }
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
    }
    return traits_type::not_eof(c);
}

int CCheckedOutputBuffer::sync() {
    return drain() ? 0 : -1;
}

}  // namespace qnpolicy::tool
