// A first look at the module: registers the installation path on a demo directory, creates
// the policy manager, prints where the policy file lives, loads it and prints the record.
//
//   qnpolicy-demo DEMO_DIR/

#include <cstdio>
#include <string>

#include "StoragePath.h"
#include "XmlLocalQNPolMgr.h"

namespace {

const char* yesNo(bool b) { return b ? "true" : "false"; }

void printRecord(const LocalQNPolicyInfo& info) {
    std::printf("  version                          '%s'\n", info.GetQNVersion().c_str());
    std::printf("  FipsMode                         %s\n", yesNo(info.UseFIPSMode()));
    std::printf("  BypassDownloader                 %s\n", yesNo(info.BypassDownloader()));
    std::printf("  StrictCertificateTrust           %s\n", yesNo(info.StrictCertTrustMode()));
    std::printf("  EnableCRLCheck                   %s\n", yesNo(info.IsCRLCheckEnabled()));
    std::printf("  OCSPRevocation                   %s\n", yesNo(info.IsOCSPRevocationEnabled()));
    std::printf("  RestrictPreferenceCaching        %s\n", info.RestrictPrefCachingStr().c_str());
    std::printf("  RestrictTunnelProtocols          %d\n", info.RestrictTunnelProtocols());
    std::printf("  ExcludeCertStores                0x%X\n", info.ExcludeCertStores());
    std::printf("  SoftwareUpdatesFromAnyServer     %s\n", yesNo(info.IsSoftwareUpdateAllowed()));
    std::printf("  AuthorizedServers                %zu\n", info.GetAuthorizedServerList().size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DEMO_DIR/\n", argv[0]);
        return 2;
    }
    std::string dir = argv[1];
    if (dir.empty() || dir.back() != '/') {
        dir += '/';
    }

    CStoragePath* pStoragePath = nullptr;
    XmlLocalQNPolMgr* pMgr = nullptr;
    if (CStoragePath::createSingletonInstance(pStoragePath, dir) != CSTORAGEPATH_SUCCESS ||
        XmlLocalQNPolMgr::createSingletonInstance(pMgr) != XMLLOCALQNPOLMGR_SUCCESS) {
        std::fprintf(stderr, "demo: cannot register the services\n");
        return 1;
    }

    std::string policyDir;
    std::string policyFile;
    pMgr->GetLocalPolicyLocation(policyDir, policyFile);
    std::printf("policy file: %s%s (%s)\n", policyDir.c_str(), policyFile.c_str(),
                pMgr->LocalPolicyFileExists() ? "present" : "absent");
    const STATUSCODE status = pMgr->LoadLocalQuillnetPolicy();
    std::printf("load status: 0x%lX\nrecord:\n", static_cast<unsigned long>(status));
    printRecord(pMgr->GetLocalPolicyInfo());
    std::printf("vocabulary: %zu abbreviations\n", pMgr->GetPolicyTransTable().size());

    pMgr->releaseInstance();
    pStoragePath->releaseInstance();
    return status == XMLLOCALQNPOLMGR_SUCCESS ? 0 : 1;
}
