// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_STRINGUTILS_H
#define QUILLNET_STRINGUTILS_H

#include <string.h>  // explicit_bzero

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "QuillnetExport.h"

// String helpers shared by the client's modules.
class QUILLNET_API CStringUtils {
  public:
    // Cuts text at every occurrence of separator and returns the pieces in order. Empty
    // pieces are dropped, so "a,,b," gives {"a", "b"} and "" or "," give no piece at all:
    // a doubled or trailing separator never yields an empty token.
    static std::vector<std::string> tokenize(const std::string& text, char separator);
};

// SecureString holds text that must not linger in memory once it is no longer needed: the
// characters are overwritten with zeros before their storage is given up (on destruction,
// on assignment, and when an append moves the text to a larger buffer). The wipes use
// explicit_bzero, which the compiler may not remove as dead stores.
//
// Every source given as a string or as a NUL-terminated pointer is copied up to its first
// NUL character; only the pointer-and-count constructor copies an exact number of
// characters. Instantiated for std::string and std::wstring.
//
//   SecureString<std::string> password(buffer);   // copies buffer
//   password += suffix;                           // grows without leaving copies behind
//   SecureString<std::string>::Reset(plainText);  // wipes a caller's std::string
//
// What a caller does through the modifiable reference of operator StrT&() (shrinking the
// value, making it reallocate) is outside these guarantees.
template <typename StrT>
class SecureString {
  public:
    typedef typename StrT::value_type charT;
    typedef typename StrT::traits_type traitsT;
    typedef const charT* const_pointerT;

    SecureString() = default;

    // Copies the NUL-terminated text at p. Throws std::logic_error when p is null.
    SecureString(const_pointerT p) {  // NOLINT(google-explicit-constructor)
        if (p == nullptr) {
            throwNull();
        }
        m_strValue.assign(p, traitsT::length(p));
    }

    // Copies exactly n characters from p, NUL characters included. n == 0 gives the empty
    // value even when p is null; a null p with n > 0 throws std::logic_error.
    SecureString(const_pointerT p, size_t n) {
        if (n == 0) {
            return;
        }
        if (p == nullptr) {
            throwNull();
        }
        m_strValue.assign(p, n);
    }

    SecureString(const StrT& s) { assignUpToNul(s); }  // NOLINT(google-explicit-constructor)

    SecureString(const SecureString& other) { assignUpToNul(other.m_strValue); }

    // Wipes the current value, then copies rhs's value up to its first NUL. Assigning an
    // object to itself keeps its value.
    SecureString& operator=(const SecureString& rhs) {
        if (this != &rhs) {
            wipe(m_strValue);
            assignUpToNul(rhs.m_strValue);
        }
        return *this;
    }

    // Appends s up to its first NUL. When the result would not fit strictly inside the
    // current capacity, the value moves to a buffer with 256 characters of headroom and the
    // abandoned buffer is wiped first.
    SecureString& operator+=(const StrT& s) {
        const size_t appendLength = traitsT::length(s.c_str());
        if (m_strValue.length() + appendLength < m_strValue.capacity()) {
            m_strValue.append(s.c_str(), appendLength);
            return *this;
        }
        {
            SecureString saved(m_strValue);
            wipe(m_strValue);
            m_strValue.reserve(appendLength + saved.length() + kGrowthHeadroom);
            m_strValue.assign(saved.c_str(), saved.length());
        }
        m_strValue.append(s.c_str(), appendLength);
        return *this;
    }

    ~SecureString() { wipe(m_strValue); }

    operator StrT&() { return m_strValue; }

    const_pointerT c_str() const { return m_strValue.c_str(); }

    size_t length() const { return m_strValue.length(); }

    // Wipes the caller's string and leaves it empty; its buffer stays with it.
    static void Reset(StrT& str) { wipe(str); }

    // Copies the NUL-terminated text at p, then overwrites the copied characters at p with
    // zeros: p must point to writable storage despite its type. Throws std::logic_error,
    // before anything is written, when p is null.
    static SecureString GetAndClear(const_pointerT p) {
        // Checked here as well as in the constructor so that the compiler sees p is not null
        // where it is cleared (a caller passing a literal null would otherwise get a
        // -Wnonnull diagnostic from this header).
        if (p == nullptr) {
            throwNull();
        }
        SecureString result(p);
        // The text at p belongs to the caller, who handed it in to be cleared.
        explicit_bzero(const_cast<charT*>(p), result.length() * sizeof(charT));
        return result;
    }

  private:
    static constexpr size_t kGrowthHeadroom = 256;

    // The standard string's own error for construction from a null pointer.
    [[noreturn]] static void throwNull() {
        throw std::logic_error("SecureString: construction from null is not valid");
    }

    // Zeroes the characters of str's own buffer up to its length, then empties it.
    static void wipe(StrT& str) {
        if (str.empty()) {
            return;
        }
        explicit_bzero(&str[0], str.length() * sizeof(charT));
        str.clear();
    }

    void assignUpToNul(const StrT& source) {
        m_strValue.assign(source.c_str(), traitsT::length(source.c_str()));
    }

    StrT m_strValue;
};

#endif  // QUILLNET_STRINGUTILS_H
