// SPDX-License-Identifier: Apache-2.0
#ifndef QN_TESTS_SHELLRUN_H
#define QN_TESTS_SHELLRUN_H

// One shell script run to its end, as the tool's end-to-end suites run qnpolicy: Q names the
// built binary (exported, so that editors and scripts the run starts find it too), standard
// input is empty unless the script redirects it.

#include <cstdlib>
#include <string>

#include "TestSupport.h"

namespace qntest {

struct ShellRun {
    // exports is prepended as it is, for example "D='/tmp/x/'; export D; ".
    explicit ShellRun(const std::string& script, const std::string& exports = "") {
        const TempDir capture;
        const std::string shell = "sh -c '" +
                                  quoted("export Q='" QNPOLICY_BINARY "'; " + exports + script) +
                                  "' >" + capture.path() + "o 2>" + capture.path() + "e </dev/null";
        status = WEXITSTATUS(std::system(shell.c_str()));
        out = readFile(capture.path() + "o");
        err = readFile(capture.path() + "e");
    }
    bool has(const std::string& part) const { return (out + err).find(part) != std::string::npos; }
    // text with each ' written so that it survives inside single quotes.
    static std::string quoted(const std::string& text) {
        std::string escaped;
        for (const char c : text) {
            escaped += c == '\'' ? std::string("'\\''") : std::string(1, c);
        }
        return escaped;
    }

    int status;
    std::string out;
    std::string err;
};

}  // namespace qntest

#endif  // QN_TESTS_SHELLRUN_H
