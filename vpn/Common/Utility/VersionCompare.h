// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_VERSIONCOMPARE_H
#define QUILLNET_VERSIONCOMPARE_H

#include <list>
#include <string>

// Version is a dotted version read from text and ordered as a list of unsigned integers.
//
//   Version("5.1.8.106", ".,") > Version("5.1.8.105", ".,")   // true
//
// The text is cut at every character of separators. Each component is the unsigned decimal
// number formed by its leading digits: no leading digit gives 0, a number too large for
// unsigned int gives its maximum (never an exception). Versions compare component by
// component, missing trailing components counting as 0, so "5.1" equals "5.1.0.0".
class Version {
  public:
    Version(const std::string& text, const std::string& separators);

    std::list<unsigned int> versionInfo;

    bool operator==(const Version& other) const { return compare(other) == 0; }
    bool operator!=(const Version& other) const { return compare(other) != 0; }
    bool operator<(const Version& other) const { return compare(other) < 0; }
    bool operator<=(const Version& other) const { return compare(other) <= 0; }
    bool operator>(const Version& other) const { return compare(other) > 0; }
    bool operator>=(const Version& other) const { return compare(other) >= 0; }

  private:
    // Negative, zero or positive as this version is lower than, equal to or higher than other.
    int compare(const Version& other) const;
};

namespace qnpolicy {

// Whether Version(text, separators) > reference, with memory bounded by reference rather than
// by text: only as many components of text as reference has are read into a list; the rest
// can only make text greater, as soon as one of them is non-zero, and are merely scanned. For
// version texts that come from outside (a policy file's attribute may hold millions of
// separators, each of which would otherwise become a list node).
bool IsVersionTextGreater(const std::string& text, const std::string& separators,
                          const Version& reference);

}  // namespace qnpolicy

#endif  // QUILLNET_VERSIONCOMPARE_H
