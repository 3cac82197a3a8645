#ifndef QN_FUZZ_FUZZINPUT_H
#define QN_FUZZ_FUZZINPUT_H

// Splits a fuzzer's byte string into small typed pieces for the targets.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace qnfuzz {

// Stops the fuzzer with a crash report when an invariant does not hold.
inline void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// FuzzInput hands out the fuzzer's bytes front to back; once they run out every getter
// returns zero or empty values, so a target never reads past the input.
class FuzzInput {
  public:
    FuzzInput(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    bool empty() const { return m_pos >= m_size; }

    uint8_t byte() { return m_pos < m_size ? m_data[m_pos++] : 0; }

    // Up to maxLength bytes, the length itself taken from the input.
    std::string text(size_t maxLength) {
        const size_t wanted = byte() % (maxLength + 1);
        const size_t length = wanted < m_size - m_pos ? wanted : m_size - m_pos;
        std::string piece(reinterpret_cast<const char*>(m_data + m_pos), length);
        m_pos += length;
        return piece;
    }

    // Whatever is left.
    std::string rest() {
        std::string piece(reinterpret_cast<const char*>(m_data + m_pos), m_size - m_pos);
        m_pos = m_size;
        return piece;
    }

  private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_pos = 0;
};

}  // namespace qnfuzz

#endif  // QN_FUZZ_FUZZINPUT_H
