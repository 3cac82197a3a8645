#ifndef QN_TESTS_POLICYDOCUMENTFIXTURE_H
#define QN_TESTS_POLICYDOCUMENTFIXTURE_H

// A fixture that writes policy documents into a fresh main installation directory and loads
// them through a registered manager, capturing every log record.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "LocalQNPolicyInfo.h"
#include "TestSupport.h"
#include "XmlLocalQNPolMgr.h"

namespace qntest {

// Every getter of a record in one comparable text, so two records compare as a whole.
inline std::string summarize(const LocalQNPolicyInfo& info) {
    std::ostringstream out;
    out << "version=" << info.GetQNVersion() << " fips=" << info.UseFIPSMode()
        << " bd=" << info.BypassDownloader() << " bdl=" << info.BypassDefaultLocalization()
        << " rswd=" << info.RestrictScriptWebDeploy() << " rhwd=" << info.RestrictHelpWebDeploy()
        << " rrwd=" << info.RestrictResourceWebDeploy()
        << " rlwd=" << info.RestrictLocalizationWebDeploy()
        << " rwl=" << info.RestrictWebLaunchMode() << " sct=" << info.StrictCertTrustMode()
        << " crl=" << info.IsCRLCheckEnabled() << " ocsp=" << info.IsOCSPRevocationEnabled()
        << " cache=" << info.RestrictPrefCachingStr()
        << " tunnel=" << info.RestrictTunnelProtocols() << " exclude=" << std::hex
        << info.ExcludeCertStores() << std::dec << " rscs=" << info.IsRestrictServerCertStore()
        << " su=" << info.IsSoftwareUpdateAllowed()
        << " cmu=" << info.IsComplianceModuleSoftwareUpdateAllowed()
        << " vpu=" << info.IsVPNProfileUpdateAllowed()
        << " mvpu=" << info.IsMgmtVPNProfileUpdateAllowed()
        << " ppu=" << info.IsPlexoProfileUpdateAllowed()
        << " spu=" << info.IsServiceProfileUpdateAllowed()
        << " scu=" << info.IsScriptUpdateAllowed() << " hu=" << info.IsHelpUpdateAllowed()
        << " ru=" << info.IsResourceUpdateAllowed() << " lu=" << info.IsLocalizationUpdateAllowed()
        << " servers=[";
    for (const std::string& server : info.GetAuthorizedServerList()) {
        out << "'" << server << "'";
    }
    out << "]";
    return out.str();
}

class PolicyDocumentFixture : public ::testing::Test {
  protected:
    static constexpr char kRootOpen[] =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<QuillnetLocalPolicy>\n";
    static constexpr char kRootClose[] = "</QuillnetLocalPolicy>\n";

    // Writes the policy file with exactly this content.
    void writePolicy(const std::string& content) {
        m_dir.write("QuillnetLocalPolicy.xml", content);
    }
    // Writes a document whose root holds children, then loads it; expects success.
    LocalQNPolicyInfo load(const std::string& children) {
        writePolicy(kRootOpen + children + kRootClose);
        return loadAsIs();
    }
    // Loads whatever is at the policy path; expects success.
    LocalQNPolicyInfo loadAsIs() {
        m_log.clear();
        EXPECT_EQ(m_mgr->LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
        return m_mgr->GetLocalPolicyInfo();
    }
    // The records logged since the last load, at the given importance.
    std::vector<CAppLogRecord> logged(Logging::DebugImportance importance) const {
        std::vector<CAppLogRecord> selected;
        for (const CAppLogRecord& record : m_log.records()) {
            if (record.importance == importance) {
                selected.push_back(record);
            }
        }
        return selected;
    }
    const std::string& dir() const { return m_dir.path(); }
    std::string policyPath() const { return m_dir.path() + "QuillnetLocalPolicy.xml"; }

    TempDir m_dir;
    StoragePathScope m_storage{m_dir.path()};
    ManagerScope m_mgr;
    LogCapture m_log;
};

}  // namespace qntest

#endif  // QN_TESTS_POLICYDOCUMENTFIXTURE_H
