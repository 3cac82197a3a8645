// Uses the installed package the way a client component does: registers the installation
// path, creates the manager, loads (no file: defaults) and reads the record.

#include <cstdio>
#include <string>

#include "AppLog.h"
#include "StoragePath.h"
#include "StringUtils.h"
#include "XmlLocalQNPolMgr.h"

int main() {
    CStoragePath* pStoragePath = nullptr;
    if (CStoragePath::createSingletonInstance(pStoragePath, "/nonexistent-quillnet-consumer/") != 0) {
        std::fprintf(stderr, "consumer: cannot register the installation path\n");
        return 1;
    }
    XmlLocalQNPolMgr* pMgr = nullptr;
    if (XmlLocalQNPolMgr::createSingletonInstance(pMgr) != XMLLOCALQNPOLMGR_SUCCESS) {
        std::fprintf(stderr, "consumer: cannot create the manager\n");
        return 1;
    }
    std::string dir;
    std::string name;
    const bool located = pMgr->GetLocalPolicyLocation(dir, name) == XMLLOCALQNPOLMGR_SUCCESS &&
                         dir + name == "/nonexistent-quillnet-consumer/QuillnetLocalPolicy.xml";
    const bool loaded = pMgr->LoadLocalQuillnetPolicy() == XMLLOCALQNPOLMGR_SUCCESS;
    const LocalQNPolicyInfo info = pMgr->GetLocalPolicyInfo();
    const bool defaults = !info.UseFIPSMode() && info.IsSoftwareUpdateAllowed() &&
                          info.RestrictPrefCachingStr() == "false" &&
                          pMgr->GetPolicyTransTable().size() == 29;
    SecureString<std::string> secret("consumer");
    pMgr->releaseInstance();
    pStoragePath->releaseInstance();

    if (!located || !loaded || !defaults || secret.length() != 8) {
        std::fprintf(stderr, "consumer: unexpected result (located %d, loaded %d, defaults %d)\n",
                     located, loaded, defaults);
        return 1;
    }
    std::printf("consumer: policy path %s%s, defaults read\n", dir.c_str(), name.c_str());
    return 0;
}
