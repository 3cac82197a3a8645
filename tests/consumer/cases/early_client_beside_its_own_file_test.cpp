// SPDX-License-Identifier: Apache-2.0
// A client component that works in its own global constructor, before main and perhaps before
// the library's own static objects are initialised: it registers the installation path given
// without its trailing separator, creates the manager, generates a policy and loads it. The
// client also defines a function fileExists of its own, of the name and signature the platform
// layer's once had, which reports every path as absent: the library must not call it.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <quillnet/LocalPolicyDocument.h>
#include <quillnet/StoragePath.h>
#include <quillnet/XmlLocalQNPolMgr.h>

bool fileExists(const std::string& /*path*/) {
    return false;
}

namespace {

struct EarlyClient {
    std::string directory;  // the installation directory, without its separator
    bool bGenerated = false;
    STATUSCODE loadStatus = -1;
    LocalQNPolicyInfo info;

    EarlyClient() {
        char pattern[] = "/tmp/qn-consumer-XXXXXX";
        if (::mkdtemp(pattern) == nullptr) {
            return;
        }
        directory = pattern;
        CStoragePath* pStoragePath = nullptr;
        XmlLocalQNPolMgr* pMgr = nullptr;
        if (CStoragePath::createSingletonInstance(pStoragePath, directory) != 0 ||
            XmlLocalQNPolMgr::createSingletonInstance(pMgr) != XMLLOCALQNPOLMGR_SUCCESS) {
            return;
        }
        char fips[] = "fm=true";
        char servers[] = "upal=gw1.example.com;gw2.example.com";
        char* args[] = {fips, servers};
        bGenerated = pMgr->GenerateLocalPolicy(args, 2, true);
        loadStatus = pMgr->LoadLocalQuillnetPolicy();
        info = pMgr->GetLocalPolicyInfo();
        pMgr->releaseInstance();
        pStoragePath->releaseInstance();
    }
};
const EarlyClient g_early;

int fail(const char* what) {
    std::fprintf(stderr, "early_client_beside_its_own_file_test: %s\n", what);
    return 1;
}

int check() {
    const std::string inside = g_early.directory + "/" + qnpolicy::kPolicyFileName;
    const std::string beside = g_early.directory + qnpolicy::kPolicyFileName;
    if (!g_early.bGenerated || g_early.loadStatus != XMLLOCALQNPOLMGR_SUCCESS) {
        return fail("generating or loading from a global constructor failed");
    }
    if (::access(inside.c_str(), F_OK) != 0 || ::access(beside.c_str(), F_OK) == 0) {
        return fail("the policy was not written inside the directory given without separator");
    }
    if (!g_early.info.UseFIPSMode() || g_early.info.GetAuthorizedServerList().size() != 2) {
        return fail("the load did not read the file (did the client's fileExists hide it?)");
    }
    return fileExists(inside) ? fail("the client's own fileExists was replaced") : 0;
}

}  // namespace

int main() {
    const int status = check();
    if (!g_early.directory.empty()) {
        std::remove((g_early.directory + "/" + qnpolicy::kPolicyFileName).c_str());
        ::rmdir(g_early.directory.c_str());
    }
    return status;
}
