// SPDX-License-Identifier: Apache-2.0
// A client learns why a generation failed from the document layer's values, without a log
// sink: storing into a directory that does not exist names the failed step and ENOENT.

#include <cerrno>
#include <cstdio>
#include <string>

#include <quillnet/LocalPolicyDocument.h>

int main() {
    const char* args[] = {"fm=true"};
    const qnpolicy::ArgumentCheck check = qnpolicy::CheckInstallerArguments(args, 1);
    const std::string directory = "/nonexistent-quillnet/missing/";
    std::string bytes;
    if (qnpolicy::RenderPolicyDocument(check.settings, directory, bytes) != 0) {
        std::fprintf(stderr, "generation_failure_step_and_errno: rendering failed\n");
        return 1;
    }
    const qnpolicy::StoreResult stored = qnpolicy::StorePolicyDocument(directory, bytes, true);
    if (stored.eOutcome != qnpolicy::StoreResult::FAILED || stored.step.empty() ||
        stored.error != ENOENT) {
        std::fprintf(stderr, "generation_failure_step_and_errno: outcome %d, step '%s', errno %d\n",
                     static_cast<int>(stored.eOutcome), stored.step.c_str(), stored.error);
        return 1;
    }
    return 0;
}
