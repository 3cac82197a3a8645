// SPDX-License-Identifier: Apache-2.0
// A client component that works in its own global constructor, before main and perhaps before
// the library's own static objects are initialised: it registers the installation path given
// without its trailing separator, creates the manager, loads while there is no file (the
// defaults), generates a policy and loads it. The client has names of its own that the library
// must leave alone: a Locks.h (tests/consumer/include/), included before the library's headers,
// which include their own Locks.h, so each header must keep its declarations; and a function
// fileExists, of the name and signature the platform layer's once had, which reports every path
// as absent: the library must not call it. main also lists the settings from the installed
// catalogue: every one with an abbreviation is in the vocabulary.

#include "Locks.h"  // the client's own

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <quillnet/LocalPolicyDocument.h>
#include <quillnet/LocalPolicySettings.h>
#include <quillnet/StoragePath.h>
#include <quillnet/StringUtils.h>
#include <quillnet/XmlLocalQNPolMgr.h>

bool fileExists(const std::string& /*path*/) {
    return false;
}

namespace {

struct EarlyClient {
    std::string directory;  // the installation directory, without its separator
    bool bDefaults = false;
    bool bGenerated = false;
    STATUSCODE loadStatus = -1;
    LocalQNPolicyInfo info;
    size_t vocabularyRows = 0;

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
        const bool bLoaded = pMgr->LoadLocalQuillnetPolicy() == XMLLOCALQNPOLMGR_SUCCESS;
        const LocalQNPolicyInfo defaults = pMgr->GetLocalPolicyInfo();
        bDefaults = bLoaded && !defaults.UseFIPSMode() && defaults.IsSoftwareUpdateAllowed();
        vocabularyRows = pMgr->GetPolicyTransTable().size();
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
    std::fprintf(stderr, "defaults_through_the_package: %s\n", what);
    return 1;
}

int check() {
    const std::string inside = g_early.directory + "/" + qnpolicy::kPolicyFileName;
    const std::string beside = g_early.directory + qnpolicy::kPolicyFileName;
    size_t installerSettings = 0;
    for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
        installerSettings += setting.abbreviation.empty() ? 0 : 1;
    }
    if (!g_early.bDefaults || installerSettings == 0 ||
        g_early.vocabularyRows != installerSettings) {
        return fail("no defaults without a file, or a vocabulary unlike the catalogue");
    }
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
    ClientLock clientLock;  // declared by the client's Locks.h
    clientLock.holders = 1;
    CManualLock libraryLock(500);  // declared by the library's Locks.h
    CAutoLockT<CManualLock> guard(libraryLock);
    const SecureString<std::string> secret("consumer");
    int status = check();
    if (secret.length() != 8 || clientLock.holders != 1) {
        status = fail("the library's lock or secure string misbehaves beside the client's lock");
    }
    if (!g_early.directory.empty()) {
        std::remove((g_early.directory + "/" + qnpolicy::kPolicyFileName).c_str());
        ::rmdir(g_early.directory.c_str());
    }
    return status;
}
