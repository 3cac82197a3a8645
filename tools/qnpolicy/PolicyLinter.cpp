#include "PolicyLinter.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>

#include "AppLog.h"
#include "DeferredLog.h"
#include "LocalQNPolicyOptionTexts.h"
#include "NameSuggestion.h"
#include "StringUtils.h"
#include "VersionCompare.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlParser.h"

namespace qnpolicy::tool {

namespace {

constexpr char kSourceFile[] = "tools/qnpolicy/PolicyLinter";

constexpr char kTrue[] = "true";
constexpr char kFalse[] = "false";
constexpr char kVersionSeparators[] = ".,";
constexpr char kCachingElement[] = "RestrictPreferenceCaching";
constexpr char kTunnelElement[] = "RestrictTunnelProtocols";
constexpr char kExclusionPrefix[] = "Exclude";
constexpr char kDoctypeMarkup[] = "<!DOCTYPE";
// The only tunnel texts the reader applies, exactly as it compares them.
const char* const kAppliedTunnelTexts[] = {"false", "ipsec", "tls"};

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

std::string lowerCase(const std::string& text) {
    std::string lowered = text;
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lowered;
}

bool isBlank(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return std::isspace(c) != 0; });
}

std::string trimmed(const std::string& text) {
    const auto notSpace = [](unsigned char c) { return std::isspace(c) == 0; };
    const auto first = std::find_if(text.begin(), text.end(), notSpace);
    const auto last = std::find_if(text.rbegin(), text.rend(), notSpace).base();
    return first < last ? std::string(first, last) : std::string();
}

std::string joinQuoted(std::vector<std::string>::const_iterator first,
                       std::vector<std::string>::const_iterator last) {
    std::string joined;
    for (auto it = first; it != last; ++it) {
        joined += (joined.empty() ? "" : ", ") + quoted(*it);
    }
    return joined;
}

std::string didYouMean(const std::string& suggestion) {
    return suggestion.empty() ? std::string() : " Did you mean " + quoted(suggestion) + "?";
}

// Where the DOCTYPE declaration starts, for the finding that replaces the parser's refusal;
// (0, 0) when the file cannot be read again or holds no such markup.
std::pair<unsigned long, unsigned long> findDoctype(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
    const size_t offset = content.find(kDoctypeMarkup);
    if (offset == std::string::npos) {
        return {0, 0};
    }
    const size_t lineStart = content.rfind('\n', offset);
    const unsigned long column = lineStart == std::string::npos ? offset + 1 : offset - lineStart;
    return {1 + std::count(content.begin(), content.begin() + offset, '\n'), column};
}

}  // namespace

CPolicyLinter::CPolicyLinter(const std::map<std::string, LocalPolicySetting>& vocabulary) {
    m_elementKinds[kRootElement] = ElementKind::ROOT;
    m_elementKinds[kUpdatePolicyElement] = ElementKind::UPDATE_POLICY;
    m_elementKinds[kAuthorizedServerListElement] = ElementKind::SERVER_LIST;
    m_elementKinds[kServerNameElement] = ElementKind::SERVER_NAME;
    // Every other vocabulary element is a setting; its kind follows from its row, the way
    // the reader treats it: update rows are permissions, the two free-text rows have their
    // own syntax, the exclusions only ever add, everything else is a plain boolean.
    for (const auto& entry : vocabulary) {
        const std::string& name = entry.second.tstrFullName;
        if (m_elementKinds.count(name) != 0) {
            continue;
        }
        ElementKind eKind = ElementKind::BOOLEAN;
        if (entry.second.bIsUpdatePolicy) {
            eKind = ElementKind::UPDATE_PERMISSION;
        } else if (name == kCachingElement) {
            eKind = ElementKind::CACHING_LIST;
        } else if (name == kTunnelElement) {
            eKind = ElementKind::TUNNEL_PROTOCOL;
        } else if (name.rfind(kExclusionPrefix, 0) == 0) {
            eKind = ElementKind::EXCLUSION;
        }
        m_elementKinds[name] = eKind;
    }
    m_knownNames.reserve(m_elementKinds.size());
    for (const auto& entry : m_elementKinds) {
        m_knownNames.push_back(entry.first);
    }
    m_cachingTexts.reserve(sg_restrictPrefCachingOptionToStrMap.size());
    for (const auto& entry : sg_restrictPrefCachingOptionToStrMap) {
        m_cachingTexts.push_back(entry.second);
    }
}

void CPolicyLinter::resetState() {
    m_openElements.clear();
    m_bUpdatePolicySection = false;
    m_bAuthorizedServerList = false;
    m_uiOpenUpdatePolicies = 0;
    m_uiOpenServerLists = 0;
    m_settingFirstLines.clear();
    m_serverNameFirstLines.clear();
}

STATUSCODE CPolicyLinter::parse(const std::string& path, bool bSecure) {
    resetState();
    XmlParser parser(this);
    m_pParser = &parser;
    const STATUSCODE status = parser.parseFile(path, bSecure);
    m_pParser = nullptr;
    return status;
}

LintResult CPolicyLinter::LintFile(const std::string& path) {
    m_findings.clear();
    STATUSCODE status = XMLPARSER_SUCCESS;
    {
        // The module refuses a DTD, and so does the first parse; that refusal becomes a
        // finding, so its log line is dropped, and the rest of the file is linted by a
        // second parse that tolerates the DTD (still never reading external entities).
        CDeferredLog deferred;
        status = parse(path, true);
        if (status == XMLPARSER_ERROR_DOCTYPE_REFUSED) {
            deferred.Discard();
            m_findings.clear();
            const auto position = findDoctype(path);
            report(position.first, position.second, findingkind::kDoctype,
                   "The file declares a DTD. The client refuses every policy file with a "
                   "DOCTYPE declaration: loading fails and none of its settings take effect. "
                   "Remove the declaration.");
        }
    }
    if (status == XMLPARSER_ERROR_DOCTYPE_REFUSED) {
        status = parse(path, false);
    }
    if (status != XMLPARSER_SUCCESS) {
        CAppLog::LogReturnCode("LintFile", kSourceFile, __LINE__, Logging::DBG_Error,
                               "XmlParser::parseFile", static_cast<uint32_t>(status),
                               "cannot lint %s", nullptr, path.c_str());
    }
    LintResult result;
    result.parseStatus = status;
    result.findings = std::move(m_findings);
    m_findings.clear();
    std::stable_sort(result.findings.begin(), result.findings.end(),
                     [](const LintFinding& a, const LintFinding& b) {
                         return std::make_pair(a.line, a.column) < std::make_pair(b.line, b.column);
                     });
    return result;
}

void CPolicyLinter::report(unsigned long line, unsigned long column, const char* kind,
                           const std::string& message) {
    m_findings.push_back(LintFinding{line, column, kind, message});
}

void CPolicyLinter::report(const OpenElement& element, const char* kind,
                           const std::string& message) {
    report(element.line, element.column, kind, message);
}

CPolicyLinter::ElementKind CPolicyLinter::kindOf(const std::string& elementName) const {
    const auto found = m_elementKinds.find(elementName);
    return found == m_elementKinds.end() ? ElementKind::UNKNOWN : found->second;
}

std::string CPolicyLinter::suggestElement(const std::string& elementName) const {
    return SuggestName(elementName, m_knownNames);
}

void CPolicyLinter::addElement(const std::string& elementName) {
    OpenElement element;
    element.name = elementName;
    element.eKind = kindOf(elementName);
    if (m_pParser != nullptr) {
        element.line = m_pParser->CurrentLine();
        element.column = m_pParser->CurrentColumn();
    }
    const bool bIsRoot = m_openElements.empty();
    if (!bIsRoot) {
        m_openElements.back().bHasChildren = true;
    }

    switch (element.eKind) {
        case ElementKind::UNKNOWN:
            element.bIgnored = true;
            report(element, findingkind::kUnknownElement,
                   (bIsRoot ? "The root element " + quoted(elementName) + " is not " +
                                  quoted(kRootElement) +
                                  ": the settings inside it are still read, but its "
                                  "version attribute is not."
                            : "Unknown element " + quoted(elementName) +
                                  ": the reader ignores it and its text (known settings inside it "
                                  "still count).") +
                       didYouMean(suggestElement(elementName)));
            break;
        case ElementKind::ROOT:
            break;
        case ElementKind::UPDATE_POLICY:
            if (m_uiOpenUpdatePolicies > 0) {
                report(element, findingkind::kNestedUpdatePolicy,
                       "\"UpdatePolicy\" inside \"UpdatePolicy\": when the inner one ends, the "
                       "reader treats the rest of the outer one as outside the section.");
            }
            ++m_uiOpenUpdatePolicies;
            m_bUpdatePolicySection = true;
            break;
        case ElementKind::SERVER_LIST:
            ++m_uiOpenServerLists;
            if (m_bUpdatePolicySection) {
                m_bAuthorizedServerList = true;
            } else {
                element.bIgnored = true;
                report(element, findingkind::kServerListOutsideSection,
                       "\"AuthorizedServerList\" outside \"UpdatePolicy\": the reader ignores "
                       "it and every server name in it.");
            }
            break;
        case ElementKind::SERVER_NAME:
            if (!m_bAuthorizedServerList) {
                element.bIgnored = true;
                // Inside an ignored list the list's own finding already says so.
                if (m_uiOpenServerLists == 0) {
                    report(element, findingkind::kServerNameOutsideList,
                           "\"ServerName\" outside \"AuthorizedServerList\": the reader "
                           "ignores it; authorized servers belong in UpdatePolicy/"
                           "AuthorizedServerList.");
                }
            }
            break;
        case ElementKind::UPDATE_PERMISSION:
            if (!m_bUpdatePolicySection) {
                element.bIgnored = true;
                report(element, findingkind::kUpdatePermissionOutsideSection,
                       quoted(elementName) +
                           " outside \"UpdatePolicy\": the reader ignores it (and logs "
                           "\"Local Policy XML structure is incorrect.\"); move it into the "
                           "\"UpdatePolicy\" section.");
            } else {
                checkDuplicateSetting(element);
            }
            break;
        case ElementKind::BOOLEAN:
        case ElementKind::EXCLUSION:
        case ElementKind::CACHING_LIST:
        case ElementKind::TUNNEL_PROTOCOL:
            checkDuplicateSetting(element);
            break;
    }
    m_openElements.push_back(element);
}

void CPolicyLinter::addAttribute(const std::string& attributeName,
                                 const std::string& attributeValue) {
    if (m_openElements.empty()) {
        return;
    }
    const OpenElement& element = m_openElements.back();
    if (element.eKind == ElementKind::ROOT) {
        // The reader compares the version of every element so named, like this.
        // Compared like the reader does, without a list node per component of the text.
        if (attributeName == kVersionAttribute &&
            IsVersionTextGreater(attributeValue, kVersionSeparators,
                                 Version(kClientVersion, kVersionSeparators))) {
            report(element, findingkind::kNewerVersion,
                   "The file's version " + quoted(attributeValue) +
                       " is newer than this client's " + quoted(kClientVersion) +
                       ": the client reads it anyway and warns that unexpected behaviour "
                       "can result.");
        }
        return;
    }
    if (!element.bIgnored) {
        report(element, findingkind::kIgnoredAttribute,
               "Attribute " + quoted(attributeName) + " of " + quoted(element.name) +
                   " is ignored: the reader takes a setting's value from the element's text "
                   "only.");
    }
}

void CPolicyLinter::setElementValue(const std::string& elementValue) {
    if (m_openElements.empty()) {
        return;
    }
    OpenElement& element = m_openElements.back();
    element.bHasText = true;
    if (element.bIgnored) {
        return;
    }
    switch (element.eKind) {
        case ElementKind::BOOLEAN:
        case ElementKind::EXCLUSION:
        case ElementKind::UPDATE_PERMISSION:
            checkBooleanText(element, elementValue);
            break;
        case ElementKind::CACHING_LIST:
            checkCachingList(element, elementValue);
            break;
        case ElementKind::TUNNEL_PROTOCOL:
            checkTunnelText(element, elementValue);
            break;
        case ElementKind::SERVER_NAME:
            checkServerName(element, elementValue);
            break;
        case ElementKind::SERVER_LIST:
            if (!isBlank(elementValue)) {
                report(element, findingkind::kServerListText,
                       "The text " + quoted(elementValue) +
                           " of \"AuthorizedServerList\" is ignored: give each server in a "
                           "\"ServerName\" element of its own.");
            }
            break;
        case ElementKind::UNKNOWN:
        case ElementKind::ROOT:
        case ElementKind::UPDATE_POLICY:
            break;
    }
}

void CPolicyLinter::endElement(const std::string& elementName) {
    if (!m_openElements.empty()) {
        checkEmptyElement(m_openElements.back());
        m_openElements.pop_back();
    }
    // The reader's flags, cleared by name whatever the nesting, exactly as it does.
    if (elementName == kAuthorizedServerListElement) {
        m_bAuthorizedServerList = false;
        if (m_uiOpenServerLists > 0) {
            --m_uiOpenServerLists;
        }
    } else if (elementName == kUpdatePolicyElement) {
        m_bUpdatePolicySection = false;
        if (m_uiOpenUpdatePolicies > 0) {
            --m_uiOpenUpdatePolicies;
        }
    }
}

void CPolicyLinter::checkDuplicateSetting(const OpenElement& element) {
    const auto inserted = m_settingFirstLines.emplace(element.name, element.line);
    if (inserted.second) {
        return;
    }
    std::string effect;
    switch (element.eKind) {
        case ElementKind::EXCLUSION:
            effect = "an exclusion once made stays, whatever a later occurrence says.";
            break;
        case ElementKind::CACHING_LIST:
            effect = "the lists are applied one after the other.";
            break;
        case ElementKind::TUNNEL_PROTOCOL:
            effect = "the last recognised value wins.";
            break;
        default:
            effect = "the last one wins.";
            break;
    }
    report(element, findingkind::kDuplicateSetting,
           quoted(element.name) + " is given again (first at line " +
               std::to_string(inserted.first->second) +
               "): the reader applies every occurrence in document order, and " + effect);
}

void CPolicyLinter::checkBooleanText(const OpenElement& element, const std::string& text) {
    if (text == kTrue || text == kFalse) {
        return;
    }
    const std::string consequence = element.eKind == ElementKind::EXCLUSION
                                        ? "which the reader ignores (only \"true\" excludes "
                                          "the store group)"
                                        : "which the reader takes as false";
    const std::string meant = lowerCase(trimmed(text));
    const std::string hint = meant == kTrue || meant == kFalse
                                 ? " Write " + quoted(meant) + " exactly."
                                 : " Write \"true\" or \"false\".";
    report(element, findingkind::kNonBooleanValue,
           quoted(element.name) + " holds " + quoted(text) + ", " + consequence + "." + hint);
}

void CPolicyLinter::checkCachingList(const OpenElement& element, const std::string& text) {
    const std::vector<std::string>& optionTexts = m_cachingTexts;
    const std::vector<std::string> tokens =
        CStringUtils::tokenize(text, sg_restrictPrefCachingDelim);
    if (tokens.empty()) {
        report(element, findingkind::kEmptyValue,
               quoted(element.name) + " holds " + quoted(text) +
                   ", which names no caching option: the setting stays unchanged.");
        return;
    }
    // The reader applies the tokens in order and stops at the first "false" or unknown one,
    // which clears every restriction set before it.
    for (auto token = tokens.begin(); token != tokens.end(); ++token) {
        const bool bKnown =
            std::find(optionTexts.begin(), optionTexts.end(), *token) != optionTexts.end();
        if (bKnown && *token != kFalse) {
            continue;
        }
        const std::string before = joinQuoted(tokens.begin(), token);
        if (!bKnown) {
            report(element, findingkind::kUnknownCachingToken,
                   "Unknown caching option " + quoted(*token) + " in " + quoted(element.name) +
                       ": the reader takes it as \"false\", which clears every caching "
                       "restriction" +
                       (before.empty() ? std::string() : " (here " + before + ")") + "." +
                       didYouMean(SuggestName(*token, optionTexts)));
        } else if (!before.empty()) {
            report(element, findingkind::kCachingRestrictionsCleared,
                   "\"false\" in " + quoted(element.name) + " clears the restrictions before it (" +
                       before + ").");
        }
        if (token + 1 != tokens.end()) {
            report(element, findingkind::kIgnoredCachingToken,
                   "The caching options after " + quoted(*token) + " in " + quoted(element.name) +
                       " are ignored: " + joinQuoted(token + 1, tokens.end()) + ".");
        }
        return;
    }
}

void CPolicyLinter::checkTunnelText(const OpenElement& element, const std::string& text) {
    for (const char* applied : kAppliedTunnelTexts) {
        if (text == applied) {
            return;
        }
    }
    const std::string lowered = lowerCase(trimmed(text));
    std::string hint = " The reader applies only \"false\", \"ipsec\" and \"tls\", exactly.";
    for (const char* applied : kAppliedTunnelTexts) {
        if (lowered == applied) {
            hint += " Write " + quoted(applied) + ".";
        }
    }
    report(element, findingkind::kTunnelValueNotApplied,
           quoted(element.name) + " holds " + quoted(text) +
               ", which the reader does not apply: the tunnel setting keeps its previous value (by "
               "default, no restriction)." +
               hint);
}

void CPolicyLinter::checkServerName(const OpenElement& element, const std::string& text) {
    if (trimmed(text) != text) {
        report(element, findingkind::kPaddedServerName,
               "Server name " + quoted(text) +
                   " has blanks around it; the reader keeps them, so the name is authorized "
                   "with them.");
    }
    const auto inserted = m_serverNameFirstLines.emplace(text, element.line);
    if (!inserted.second) {
        report(element, findingkind::kDuplicateServerName,
               "Server name " + quoted(text) + " is listed again (first at line " +
                   std::to_string(inserted.first->second) + ").");
    }
}

void CPolicyLinter::checkEmptyElement(const OpenElement& element) {
    if (element.bIgnored || element.bHasText) {
        return;
    }
    switch (element.eKind) {
        case ElementKind::BOOLEAN:
        case ElementKind::EXCLUSION:
        case ElementKind::UPDATE_PERMISSION:
        case ElementKind::CACHING_LIST:
        case ElementKind::TUNNEL_PROTOCOL:
            report(element, findingkind::kEmptyValue,
                   quoted(element.name) +
                       (element.bHasChildren ? " holds elements instead of a value"
                                             : " has no value") +
                       ": the reader leaves the setting unchanged.");
            break;
        case ElementKind::SERVER_NAME:
            report(element, findingkind::kEmptyValue,
                   "\"ServerName\" has no value: the reader adds no server for it.");
            break;
        default:
            break;
    }
}

}  // namespace qnpolicy::tool
