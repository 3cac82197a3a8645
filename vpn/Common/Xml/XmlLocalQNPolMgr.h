// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_XMLLOCALQNPOLMGR_H
#define QUILLNET_XMLLOCALQNPOLMGR_H

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "GenDefs.h"
#include "GlobalStatuscodes.h"
#include "LocalQNPolicyInfo.h"
#include "Locks.h"
#include "QuillnetExport.h"
#include "XmlMgr.h"

// Status codes of the local policy manager (block 0xB6). The manager itself produces only
// XMLLOCALQNPOLMGR_SUCCESS and XMLLOCALQNPOLMGR_ERROR_ALREADY_INITIALIZED; its operations
// pass the codes of the services they call on unchanged.
enum XMLLOCALQNPOLMGR_ERRORS : STATUSCODE {
    XMLLOCALQNPOLMGR_SUCCESS = 0,
    XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr = STATUSCODE_BLOCK_BASE(0xB6),
    XMLLOCALQNPOLMGR_ERROR_NOT_IMPLEMENTED =
        XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr + STATUSCODE_OFFSET_NOT_IMPLEMENTED,
    XMLLOCALQNPOLMGR_ERROR_BAD_PARAMETER =
        XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr + STATUSCODE_OFFSET_BAD_PARAMETER,
    XMLLOCALQNPOLMGR_ERROR_BAD_HANDLE =
        XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr + STATUSCODE_OFFSET_BAD_HANDLE,
    XMLLOCALQNPOLMGR_ERROR_MEMALLOC_FAILED =
        XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr + STATUSCODE_OFFSET_MEMALLOC_FAILED,
    XMLLOCALQNPOLMGR_ERROR_NULL_POINTER =
        XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr + STATUSCODE_OFFSET_NULL_POINTER,
    XMLLOCALQNPOLMGR_ERROR_INSUFFICIENT_BUFFER =
        XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr +
        STATUSCODE_OFFSET_INSUFFICIENT_BUFFER,
    XMLLOCALQNPOLMGR_ERROR_NOT_INITIALIZED =
        XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr + STATUSCODE_OFFSET_NOT_INITIALIZED,
    XMLLOCALQNPOLMGR_ERROR_ALREADY_INITIALIZED =
        XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr +
        STATUSCODE_OFFSET_ALREADY_INITIALIZED,
    XMLLOCALQNPOLMGR_ERROR_UNEXPECTED =
        XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr + STATUSCODE_OFFSET_UNEXPECTED,
    XMLLOCALQNPOLMGR_ERROR_NO_INSTANCE =
        XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr + STATUSCODE_OFFSET_NO_INSTANCE,
    XMLLOCALQNPOLMGR_ERROR_UNKNOWN = XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr + 11,
};

struct LocalPolicySettingInfo;
namespace qnpolicy {
class PolicyReader;
}

// One row of the policy vocabulary: what an installer abbreviation stands for.
struct LocalPolicySetting {
    std::string tstrFullName;                  // the policy's element name in the document
    bool bIsUpdatePolicy = false;              // written inside the update-policy section
    std::list<std::string> listAllowedValues;  // accepted values; empty accepts any value
};

// XmlLocalQNPolMgr is the process-wide local policy manager. It loads
// "QuillnetLocalPolicy.xml" from the main installation directory into a LocalQNPolicyInfo
// record, and generates that file from installer arguments.
//
//   XmlLocalQNPolMgr* pMgr = nullptr;
//   XmlLocalQNPolMgr::createSingletonInstance(pMgr);          // count 1; does not read the file
//   ...
//   XmlLocalQNPolMgr* p = XmlLocalQNPolMgr::acquireInstance(); // count + 1, or null
//   if (p->LoadLocalQuillnetPolicy() == XMLLOCALQNPOLMGR_SUCCESS) {
//       LocalQNPolicyInfo info = p->GetLocalPolicyInfo();
//   }
//   p->releaseInstance();                                      // the last release destroys it
//
// A load applies the FIPS retention that the FipsMode setting's description in the settings
// catalogue states (LocalPolicySettings.h); a load that finds no file leaves the record at its
// defaults, and one that cannot parse the file leaves the defaults plus the settings read
// before the error, FIPS off in both cases.
// Creation, acquisition, release and the count are serialised by one process-wide lock;
// nothing else is locked: callers that share the manager serialise loading, resetting and
// generation against each other and against readers of the record, and only one parse runs
// at a time in the process.
class QUILLNET_API XmlLocalQNPolMgr : public XmlMgr {
  public:
    enum RETAINED_FIPS_MODE : int32_t {
        NONE = 0,
        ENABLED = 1,
        DISABLED = 2,
    };

    // Creates and registers the manager, counted as the first acquisition. Fails with
    // XMLLOCALQNPOLMGR_ERROR_ALREADY_INITIALIZED (out-parameter null) while one is registered.
    static STATUSCODE createSingletonInstance(XmlLocalQNPolMgr*& rpXmlLocalQNPolMgr);
    // The registered manager, counted; null (count unchanged) when none is registered.
    static XmlLocalQNPolMgr* acquireInstance();
    static unsigned int GetAcquisitionCount();
    // Gives back one acquisition; the last one destroys the manager. A manager that is not
    // the registered one is destroyed at once.
    void releaseInstance();

    XmlLocalQNPolMgr();
    ~XmlLocalQNPolMgr() override;
    XmlLocalQNPolMgr(const XmlLocalQNPolMgr&) = delete;
    XmlLocalQNPolMgr& operator=(const XmlLocalQNPolMgr&) = delete;

    // A copy of the policy record.
    LocalQNPolicyInfo GetLocalPolicyInfo();
    // Returns the record to its defaults; the FIPS retention and the reader state are kept.
    void ResetLocalPolicyInfo();
    // A copy of the vocabulary: abbreviation to setting, one row per installer abbreviation.
    std::map<std::string, LocalPolicySetting> GetPolicyTransTable();
    // True after a successful load when the file's FIPS value differs from the retained mode.
    bool FipsModeModifiedOnDisk() { return m_bFipsModeModifiedOnDisk; }

    // Reads the policy file into the record, then applies the FIPS retention. A missing file
    // gives the defaults and success; a parse failure returns the parser's status, and so does
    // a file changed while it was read (XMLPARSER_ERROR_FILE_CHANGED).
    STATUSCODE LoadLocalQuillnetPolicy();

    // Whether anything exists at the policy path.
    bool LocalPolicyFileExists();
    // The policy directory (with its trailing separator) and the file name.
    STATUSCODE GetLocalPolicyLocation(std::string& rtstrLocalPolicyDirPath,
                                      std::string& rtstrLocalPolicyFileName) const;

    // Writes a new policy file from "policy_abbreviation=value" arguments; unusable
    // arguments are skipped with a warning each. With overwrite false an existing file is
    // kept (result true). False only for a null array, a negative count or a failed write.
    bool GenerateLocalPolicy(char** policyArgs, int numPolicyArgs, bool overwrite);

    // Parse events of the policy document: the manager is the handler of its own load and hands
    // each event to its reader.
    void addElement(const std::string& elementName) override;
    void endElement(const std::string& elementName) override;
    void setElementValue(const std::string& elementValue) override;
    void addAttribute(const std::string& attributeName, const std::string& attributeValue) override;

  private:
    friend class XmlLocalQNPolMgrTestPeer;

    STATUSCODE getLocalSecurityPolicyDir(std::string& rtstrLocalSecurityPolicyDir) const;
    std::string getLocalSecurityPolicyDir() const;

    void initializePolicyMap();
    bool valueIsAllowed(const LocalPolicySetting& policy, std::string& policyValue) const;

    // bReplaceExisting false: a file that exists when the new one is to take its name (even
    // one created meanwhile) is kept, as GenerateLocalPolicy keeps one found at its start.
    bool writeLocalPolicy(const std::map<std::string, std::string>& policyMap,
                          const std::map<std::string, std::string>& updatePolicyMap,
                          bool bReplaceExisting = true) const;

    bool m_bFileUseFIPSMode;
    RETAINED_FIPS_MODE m_retainedFipsMode;
    bool m_bFipsModeModifiedOnDisk;
    // The element whose text or attributes are awaited: a view of the catalogue's name of its
    // row (m_pCurrentSetting), or of the root's name; empty when no text can act.
    std::string_view m_currentElement;
    const LocalPolicySettingInfo* m_pCurrentSetting = nullptr;
    bool m_bAuthorizedServerList;
    bool m_bUpdatePolicySection;
    LocalQNPolicyInfo m_LocalQNPolicyInfo;
    std::map<std::string, LocalPolicySetting> m_policyTransTable;
    // The server list of the record a load reset, released during that load once the parser
    // holds its buffers: at the parse's first element, or at the end of the load.
    std::list<std::string> m_retiredServers;
    // The reader bound to the fields above for the manager's whole life.
    std::unique_ptr<qnpolicy::PolicyReader> m_pReader;

    static XmlLocalQNPolMgr* sm_pInstance;
    static CManualLock sm_instanceLock;
    static unsigned int sm_uiAcquisitionCount;
};

#endif  // QUILLNET_XMLLOCALQNPOLMGR_H
