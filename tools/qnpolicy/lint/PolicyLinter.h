#ifndef QNPOLICY_POLICYLINTER_H
#define QNPOLICY_POLICYLINTER_H

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "GenDefs.h"
#include "LintFinding.h"
#include "LocalPolicySettings.h"
#include "ParseFailure.h"
#include "XmlMgr.h"

class XmlParser;

namespace qnpolicy::tool {

// The outcome of linting one document.
struct LintResult {
    // False when the document could not be read to its end (missing, unreadable, not
    // well-formed); failure then says why and where, and the findings stop there.
    bool bReadable = true;
    ParseFailure failure;
    std::vector<LintFinding> findings;  // ordered by line, then column
};

// CPolicyLinter reads a policy document the way the module's reader does and reports every
// place where the reader will not do what the author probably meant: unknown elements,
// settings in the wrong section, texts the reader takes differently from how they read,
// settings given twice, a newer version, a DTD. It is a separate XmlMgr with its own state:
// linting never changes how the module reads a file.
//
//   CPolicyLinter linter;
//   LintResult result = linter.LintFile("/opt/quillnet/QuillnetLocalPolicy.xml");
//
// What each element is comes from the settings catalogue (LocalPolicySettings.h): its kind
// decides how its text is checked, its section where it counts. The file's owner and mode
// are not looked at here (see PolicyFileAttributes.h).
class CPolicyLinter : public XmlMgr {
  public:
    CPolicyLinter();

    LintResult LintFile(const std::string& path);
    // Lints an in-memory document; name stands for it in messages.
    LintResult LintBuffer(const std::string& content, const std::string& name);

    void addElement(const std::string& elementName) override;
    void endElement(const std::string& elementName) override;
    void setElementValue(const std::string& elementValue) override;
    void addAttribute(const std::string& attributeName, const std::string& attributeValue) override;

  private:
    // What an element is to the reader: the root, the update section, a catalogue row, or
    // nothing it knows.
    enum class ElementRole { UNKNOWN, ROOT, UPDATE_POLICY, SETTING };

    struct OpenElement {
        std::string name;
        ElementRole eRole = ElementRole::UNKNOWN;
        const LocalPolicySettingInfo* pSetting = nullptr;  // with SETTING
        unsigned long line = 0;
        unsigned long column = 0;
        bool bHasChildren = false;
        bool bHasText = false;
        bool bIgnored = false;  // the reader skips it; already reported
    };

    // Parses the document with the parser's secure or tolerant setting.
    using ParseStep = std::function<STATUSCODE(XmlParser& parser, bool bSecure)>;

    LintResult lint(const ParseStep& parseStep);
    void resetState();
    void report(unsigned long line, unsigned long column, const char* kind,
                const std::string& message, const std::string& element);
    void report(const OpenElement& element, const char* kind, const std::string& message);
    bool isKind(const OpenElement& element, LocalPolicySettingKind eKind) const;

    void openSetting(OpenElement& element, const LocalPolicySettingInfo& setting);
    void checkDuplicateSetting(const OpenElement& element);
    void checkBooleanText(const OpenElement& element, const std::string& text);
    void checkCachingList(const OpenElement& element, const std::string& text);
    void checkTunnelText(const OpenElement& element, const std::string& text);
    void checkServerName(const OpenElement& element, const std::string& text);
    void checkEmptyElement(const OpenElement& element);
    void reportDuplicateServerNames();

    std::vector<std::string> m_knownNames;  // candidates for "did you mean"

    // State of one lint run.
    const XmlParser* m_pParser = nullptr;
    std::vector<OpenElement> m_openElements;
    bool m_bUpdatePolicySection = false;   // the reader's own flag, which nesting can clear
    bool m_bAuthorizedServerList = false;  // likewise
    unsigned int m_uiOpenUpdatePolicies = 0;
    unsigned int m_uiOpenServerLists = 0;
    // The line of each setting's first occurrence.
    std::unordered_map<std::string, unsigned long> m_settingFirstLines;
    // Every server name read, for the duplicates found after the parse: the texts one after
    // the other in one string, so that 100,000 names cost no allocation each.
    struct ServerNameSeen {
        size_t hash;
        size_t offset;  // in m_serverNameTexts
        size_t length;
        unsigned long line;
        unsigned long column;
        const std::string* pElement;
    };
    std::string m_serverNameTexts;
    std::vector<ServerNameSeen> m_serverNames;
    std::vector<LintFinding> m_findings;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_POLICYLINTER_H
