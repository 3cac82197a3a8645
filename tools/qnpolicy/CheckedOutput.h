#ifndef QNPOLICY_CHECKEDOUTPUT_H
#define QNPOLICY_CHECKEDOUTPUT_H

#include <array>
#include <streambuf>

namespace qnpolicy::tool {

// CCheckedOutputBuffer is a stream buffer over a file descriptor (standard output) that
// remembers why a write failed: a full disk, a closed pipe. Nothing written after the first
// failure is attempted, and Error() gives its errno, so that the tool can end with the I/O
// error status instead of reporting success for output nobody received.
//
//   CCheckedOutputBuffer buffer(STDOUT_FILENO);
//   std::ostream out(&buffer);
//   out << ...;
//   out.flush();
//   if (buffer.Error() != 0) { ... }
class CCheckedOutputBuffer : public std::streambuf {
  public:
    explicit CCheckedOutputBuffer(int fd);
    ~CCheckedOutputBuffer() override;
    CCheckedOutputBuffer(const CCheckedOutputBuffer&) = delete;
    CCheckedOutputBuffer& operator=(const CCheckedOutputBuffer&) = delete;

    // The errno of the first failed write; 0 while every write succeeded.
    int Error() const { return m_error; }

  protected:
    int_type overflow(int_type c) override;
    int sync() override;

  private:
    // Writes the buffered bytes; false once a write has failed.
    bool drain();

    static constexpr size_t kBufferSize = size_t{64} << 10;
    int m_fd;
    int m_error = 0;
    std::array<char, kBufferSize> m_buffer{};
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_CHECKEDOUTPUT_H
