// Version against a reference reading of dotted versions: the same components, and an order
// that is total, antisymmetric and consistent across all six operators; and the bounded
// comparison of a version text (IsVersionTextGreater) agreeing with the built versions.

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <list>
#include <string>

#include "FuzzInput.h"
#include "VersionCompare.h"

namespace {

using qnfuzz::check;

std::list<unsigned int> referenceComponents(const std::string& text) {
    std::list<unsigned int> components;
    unsigned long long value = 0;
    bool inDigits = true;
    for (char c : text) {
        if (c == '.' || c == ',') {
            components.push_back(static_cast<unsigned int>(value));
            value = 0;
            inDigits = true;
            continue;
        }
        if (inDigits && c >= '0' && c <= '9') {
            value = value * 10 + static_cast<unsigned long long>(c - '0');
            if (value > std::numeric_limits<unsigned int>::max()) {
                value = std::numeric_limits<unsigned int>::max();
            }
        } else {
            inDigits = false;
        }
    }
    components.push_back(static_cast<unsigned int>(value));
    return components;
}

void checkOrder(const Version& a, const Version& b) {
    const int outcomes = (a < b ? 1 : 0) + (a == b ? 1 : 0) + (a > b ? 1 : 0);
    check(outcomes == 1);
    check((a <= b) == !(a > b));
    check((a >= b) == !(a < b));
    check((a != b) == !(a == b));
    check((a < b) == (b > a));
    check((a == b) == (b == a));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qnfuzz::FuzzInput in(data, size);
    const std::string first = in.text(40);
    const std::string second = in.rest();
    const Version a(first, ".,");
    const Version b(second, ".,");
    check(a.versionInfo == referenceComponents(first));
    check(b.versionInfo == referenceComponents(second));
    checkOrder(a, b);
    checkOrder(a, a);
    // Trailing zero components never change the order.
    check(Version(first + ".0", ".,") == a);
    // The bounded comparison of a text agrees with the built versions, both ways.
    check(IsVersionTextGreater(second, ".,", a) == (b > a));
    check(IsVersionTextGreater(first, ".,", b) == (a > b));
    return 0;
}
