// SPDX-License-Identifier: Apache-2.0
// Uses the installed package the way a client component does, and as a client must be able to
// rely on it:
//   - a global constructor registers the installation path, given without its trailing
//     separator, creates the manager, generates a policy and loads it, before main and perhaps
//     before the library's own static objects are initialised;
//   - the client defines a function fileExists of its own, which the library must not use;
//   - a generation that fails reports its step and errno through the document layer's values,
//     without a log sink;
//   - a load without a file gives the defaults, and the installed catalogue's installer settings
//     are the vocabulary.

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "LocalPolicyDocument.h"
#include "LocalPolicySettings.h"
#include "StoragePath.h"
#include "StringUtils.h"
#include "XmlLocalQNPolMgr.h"

// The client's own file test, of the name and signature the library's once had: it reports
// every path as absent. Were the library to call it, the load below would find no policy.
bool fileExists(const std::string& /*path*/) {
    return false;
}

namespace {

// What a client component does in its own global constructor.
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

bool fail(const char* what) {
    std::fprintf(stderr, "consumer: %s\n", what);
    return false;
}

bool earlyClientWorked() {
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
    return !fileExists(inside) || fail("the client's own fileExists was replaced");
}

// Stores into a directory that does not exist: the result says which step failed and why.
bool generationFailureIsReported() {
    char fips[] = "fm=true";
    const char* args[] = {fips};
    const qnpolicy::ArgumentCheck check =
        qnpolicy::CheckInstallerArguments(args, 1, qnpolicy::LocalPolicyVocabulary());
    const std::string directory = g_early.directory + "/missing/";
    std::string bytes;
    if (qnpolicy::RenderPolicyDocument(check.settings, directory, bytes) != 0) {
        return fail("rendering a valid document failed");
    }
    const qnpolicy::StoreResult stored = qnpolicy::StorePolicyDocument(directory, bytes, true);
    if (stored.eOutcome != qnpolicy::StoreResult::FAILED || stored.step.empty() ||
        stored.error != ENOENT) {
        return fail("a failed store did not report its step and ENOENT");
    }
    std::printf("consumer: the failed store reports step %s, errno %d\n", stored.step.c_str(),
                stored.error);
    return true;
}

bool defaultsWithoutAFile() {
    CStoragePath* pStoragePath = nullptr;
    XmlLocalQNPolMgr* pMgr = nullptr;
    if (CStoragePath::createSingletonInstance(pStoragePath, "/nonexistent-quillnet/") != 0 ||
        XmlLocalQNPolMgr::createSingletonInstance(pMgr) != XMLLOCALQNPOLMGR_SUCCESS) {
        return fail("cannot register the services");
    }
    const bool bLoaded = pMgr->LoadLocalQuillnetPolicy() == XMLLOCALQNPOLMGR_SUCCESS;
    const LocalQNPolicyInfo info = pMgr->GetLocalPolicyInfo();
    size_t installerSettings = 0;
    for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
        installerSettings += setting.abbreviation.empty() ? 0 : 1;
    }
    const bool bDefaults = !info.UseFIPSMode() && info.IsSoftwareUpdateAllowed() &&
                           installerSettings > 0 &&
                           pMgr->GetPolicyTransTable().size() == installerSettings;
    const SecureString<std::string> secret("consumer");
    pMgr->releaseInstance();
    pStoragePath->releaseInstance();
    return (bLoaded && bDefaults && secret.length() == 8) || fail("no file did not give defaults");
}

}  // namespace

int main() {
    const bool bPassed =
        earlyClientWorked() && generationFailureIsReported() && defaultsWithoutAFile();
    if (!g_early.directory.empty()) {
        std::remove((g_early.directory + "/" + qnpolicy::kPolicyFileName).c_str());
        ::rmdir(g_early.directory.c_str());
    }
    if (!bPassed) {
        return 1;
    }
    std::printf(
        "consumer: generated and loaded from a global constructor, through a directory "
        "without separator, beside the client's own fileExists\n");
    return 0;
}
