#ifndef QNPOLICY_POLICYLINTER_H
#define QNPOLICY_POLICYLINTER_H

#include <map>
#include <string>
#include <vector>

#include "GenDefs.h"
#include "LintFinding.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlMgr.h"

class XmlParser;

namespace qnpolicy::tool {

// The outcome of linting one document.
struct LintResult {
    // XMLPARSER_SUCCESS when the document was read to its end; otherwise the parser's status
    // (missing, unreadable, not well-formed) and the findings stop where the parse stopped.
    STATUSCODE parseStatus = 0;
    std::vector<LintFinding> findings;  // ordered by line, then column
};

// CPolicyLinter reads a policy document the way the module's reader does and reports every
// place where the reader will not do what the author probably meant: unknown elements,
// settings in the wrong section, texts the reader takes differently from how they read,
// settings given twice, a newer version, a DTD. It is a separate XmlMgr with its own state:
// linting never changes how the module reads a file.
//
//   CPolicyLinter linter(manager.GetPolicyTransTable());
//   LintResult result = linter.LintFile("/opt/quillnet/QuillnetLocalPolicy.xml");
//
// The element names and their kinds come from the vocabulary table, the structural names
// (root, "UpdatePolicy", "AuthorizedServerList", "ServerName") from the module's constants.
// The file's owner and mode are not looked at here (see PolicyFileAttributes.h).
class CPolicyLinter : public XmlMgr {
  public:
    explicit CPolicyLinter(const std::map<std::string, LocalPolicySetting>& vocabulary);

    LintResult LintFile(const std::string& path);

    void addElement(const std::string& elementName) override;
    void endElement(const std::string& elementName) override;
    void setElementValue(const std::string& elementValue) override;
    void addAttribute(const std::string& attributeName, const std::string& attributeValue) override;

  private:
    // How the reader treats an element's text.
    enum class ElementKind {
        UNKNOWN,
        ROOT,
        UPDATE_POLICY,
        SERVER_LIST,
        SERVER_NAME,
        BOOLEAN,            // "true" is true, any other text false
        EXCLUSION,          // "true" excludes a store group, any other text changes nothing
        UPDATE_PERMISSION,  // boolean, counted only inside "UpdatePolicy"
        CACHING_LIST,
        TUNNEL_PROTOCOL,
    };

    struct OpenElement {
        std::string name;
        ElementKind eKind = ElementKind::UNKNOWN;
        unsigned long line = 0;
        unsigned long column = 0;
        bool bHasChildren = false;
        bool bHasText = false;
        bool bIgnored = false;  // the reader skips it; already reported
    };

    void resetState();
    STATUSCODE parse(const std::string& path, bool bSecure);
    void report(unsigned long line, unsigned long column, const char* kind,
                const std::string& message);
    void report(const OpenElement& element, const char* kind, const std::string& message);
    ElementKind kindOf(const std::string& elementName) const;
    std::string suggestElement(const std::string& elementName) const;

    void checkDuplicateSetting(const OpenElement& element);
    void checkBooleanText(const OpenElement& element, const std::string& text);
    void checkCachingList(const OpenElement& element, const std::string& text);
    void checkTunnelText(const OpenElement& element, const std::string& text);
    void checkServerName(const OpenElement& element, const std::string& text);
    void checkEmptyElement(const OpenElement& element);

    std::map<std::string, ElementKind> m_elementKinds;
    std::vector<std::string> m_knownNames;    // candidates for "did you mean"
    std::vector<std::string> m_cachingTexts;  // the six caching option texts

    // State of one lint run.
    const XmlParser* m_pParser = nullptr;
    std::vector<OpenElement> m_openElements;
    bool m_bUpdatePolicySection = false;   // the reader's own flag, which nesting can clear
    bool m_bAuthorizedServerList = false;  // likewise
    unsigned int m_uiOpenUpdatePolicies = 0;
    unsigned int m_uiOpenServerLists = 0;
    std::map<std::string, unsigned long> m_settingFirstLines;
    std::map<std::string, unsigned long> m_serverNameFirstLines;
    std::vector<LintFinding> m_findings;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_POLICYLINTER_H
