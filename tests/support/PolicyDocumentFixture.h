// SPDX-License-Identifier: Apache-2.0
#ifndef QN_TESTS_POLICYDOCUMENTFIXTURE_H
#define QN_TESTS_POLICYDOCUMENTFIXTURE_H

// A fixture that writes policy documents into a fresh main installation directory and loads
// them through the registered manager, capturing every log record; and comparable texts of a
// policy record and of log records, so that tests compare them whole.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "LocalQNPolicyInfo.h"
#include "PolicyModel.h"
#include "TestSupport.h"
#include "XmlLocalQNPolMgr.h"

namespace qntest {

// A log record as one text: function, importance, source file, message, callee and code.
inline std::string describe(const CAppLogRecord& r) {
    return r.function + " " + std::to_string(r.importance) + " " + r.file + " \"" + r.message +
           "\" " + r.callee + " " + std::to_string(r.code);
}

// The records captured, described.
inline std::vector<std::string> described(const LogCapture& log) {
    std::vector<std::string> lines;
    for (const CAppLogRecord& record : log.records()) {
        lines.push_back(describe(record));
    }
    return lines;
}

// The text of a record the manager logs.
inline std::string managerRecord(const std::string& function, Logging::DebugImportance importance,
                                 const std::string& message, const std::string& callee = "",
                                 uint32_t code = 0) {
    return describe(
        {function, "vpn/Common/Xml/XmlLocalQNPolMgr", 0, importance, message, callee, code});
}

// The loader's line at the end of every successful load of an existing file.
inline std::string fipsRecord(bool bEnabled) {
    return managerRecord("LoadLocalQuillnetPolicy", Logging::DBG_Informational,
                         bEnabled ? "FIPS mode is enabled." : "FIPS mode is disabled.");
}

// The reader's warning about an update permission outside "UpdatePolicy".
inline std::string structureWarning() {
    return managerRecord("setElementValue", Logging::DBG_Warning,
                         "Local Policy XML structure is incorrect.");
}

class PolicyDocumentFixture : public ::testing::Test {
  protected:
    // Writes the policy file with exactly this content.
    void writePolicy(const std::string& content) {
        m_dir.write("QuillnetLocalPolicy.xml", content);
    }
    // Writes a root element holding these children, then loads it; expects success.
    LocalQNPolicyInfo load(const std::string& children) {
        writePolicy("<QuillnetLocalPolicy>" + children + "</QuillnetLocalPolicy>");
        return loadAsIs();
    }
    // Loads whatever is at the policy path; expects success.
    LocalQNPolicyInfo loadAsIs() {
        m_log.clear();
        EXPECT_EQ(m_mgr->LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
        return m_mgr->GetLocalPolicyInfo();
    }
    // The records logged since the last load, described.
    std::vector<std::string> logged() const { return described(m_log); }
    std::string policyPath() const { return m_dir.path() + "QuillnetLocalPolicy.xml"; }

    TempDir m_dir;
    StoragePathScope m_storage{m_dir.path()};
    ManagerScope m_mgr;
    LogCapture m_log;
};

}  // namespace qntest

#endif  // QN_TESTS_POLICYDOCUMENTFIXTURE_H
