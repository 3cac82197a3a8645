// SPDX-License-Identifier: Apache-2.0
// qnpolicy_load_policy DIR: loads DIR/QuillnetLocalPolicy.xml through the library, as a client
// does, and keeps the manager's record until exit (no copy of it is taken). `make bench-cli` runs
// it under /usr/bin/time to compare the peak memory of `qnpolicy show --json` with the library's
// own load of the same file. Log records are dropped, so that only the load is measured.

#include <cstdio>

#include "AppLog.h"
#include "StoragePath.h"
#include "XmlLocalQNPolMgr.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: qnpolicy_load_policy DIR\n");
        return 64;
    }
    CAppLog::SetSink([](const CAppLogRecord&) {});
    CStoragePath* pStoragePath = nullptr;
    XmlLocalQNPolMgr* pManager = nullptr;
    if (CStoragePath::createSingletonInstance(pStoragePath, argv[1]) != 0 ||
        XmlLocalQNPolMgr::createSingletonInstance(pManager) != 0) {
        std::fprintf(stderr, "qnpolicy_load_policy: cannot set up the policy module\n");
        return 70;
    }
    const STATUSCODE status = pManager->LoadLocalQuillnetPolicy();
    pManager->releaseInstance();
    pStoragePath->releaseInstance();
    return status == 0 ? 0 : 1;
}
