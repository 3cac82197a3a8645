#include "PolicyLinter.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "DeferredLog.h"
#include "NameSuggestion.h"
#include "StringUtils.h"
#include "TextFormat.h"
#include "VersionCompare.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlParser.h"

namespace qnpolicy::tool {

namespace {

constexpr char kTrue[] = "true";
constexpr char kFalse[] = "false";
constexpr char kVersionSeparators[] = ".,";
constexpr char kCachingDelimiter = ',';

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
        joined += (joined.empty() ? "" : ", ") + Quoted(*it);
    }
    return joined;
}

std::string didYouMean(const std::string& suggestion) {
    return suggestion.empty() ? std::string() : " Did you mean " + Quoted(suggestion) + "?";
}

}  // namespace

CPolicyLinter::CPolicyLinter() {
    m_knownNames = {kRootElement, kUpdatePolicyElement};
    for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
        m_knownNames.push_back(setting.element);
    }
}

void CPolicyLinter::resetState() {
    m_openElements.clear();
    m_bUpdatePolicySection = false;
    m_bAuthorizedServerList = false;
    m_uiOpenUpdatePolicies = 0;
    m_uiOpenServerLists = 0;
    m_settingFirstLines.clear();
    m_serverNameTexts.clear();
    m_serverNames.clear();
    m_findings.clear();
}

LintResult CPolicyLinter::LintFile(const std::string& path) {
    return lint(
        [&path](XmlParser& parser, bool bSecure) { return parser.parseFile(path, bSecure); });
}

LintResult CPolicyLinter::LintBuffer(const std::string& content, const std::string& name) {
    return lint([&content, &name](XmlParser& parser, bool bSecure) {
        return parser.parseBuffer(content.data(), content.size(), bSecure, name);
    });
}

LintResult CPolicyLinter::lint(const ParseStep& parseStep) {
    const auto parse = [this, &parseStep](bool bSecure) {
        resetState();
        XmlParser parser(this);
        m_pParser = &parser;
        const STATUSCODE status = parseStep(parser, bSecure);
        m_pParser = nullptr;
        return status;
    };
    LintResult result;
    std::vector<LintFinding> doctype;
    CDeferredLog deferred;
    STATUSCODE status = parse(true);
    if (status == XMLPARSER_ERROR_DOCTYPE_REFUSED) {
        // The module refuses a DTD, and so did this parse, which says in its failure record
        // where the declaration starts. That refusal becomes a finding; the rest of the file
        // is linted by a second parse that tolerates the DTD (still never reading anything
        // outside the document).
        const ParseFailure where = DescribeParseFailure(deferred.Records(), std::string());
        doctype.push_back(LintFinding{where.line, where.column, findingkind::kDoctype,
                                      SeverityOf(findingkind::kDoctype),
                                      "The file declares a DTD. The client refuses every policy "
                                      "file with a DOCTYPE declaration: loading fails and none "
                                      "of its settings take effect. Remove the declaration.",
                                      std::string()});
        deferred.Discard();
        CDeferredLog tolerant;
        status = parse(false);
        if (status != XMLPARSER_SUCCESS) {
            result.failure = DescribeParseFailure(tolerant.Records(), HexText(status));
        }
        // Reported below as the result's failure.
        tolerant.Discard();
    } else if (status != XMLPARSER_SUCCESS) {
        result.failure = DescribeParseFailure(deferred.Records(), HexText(status));
        deferred.Discard();
    }
    reportDuplicateServerNames();
    result.bReadable = status == XMLPARSER_SUCCESS;
    result.findings = std::move(m_findings);
    m_findings.clear();
    result.findings.insert(result.findings.begin(), doctype.begin(), doctype.end());
    std::stable_sort(result.findings.begin(), result.findings.end(),
                     [](const LintFinding& a, const LintFinding& b) {
                         return std::make_pair(a.line, a.column) < std::make_pair(b.line, b.column);
                     });
    return result;
}

void CPolicyLinter::report(unsigned long line, unsigned long column, const char* kind,
                           const std::string& message, const std::string& element) {
    m_findings.push_back(LintFinding{line, column, kind, SeverityOf(kind), message, element});
}

void CPolicyLinter::report(const OpenElement& element, const char* kind,
                           const std::string& message) {
    report(element.line, element.column, kind, message, element.name);
}

bool CPolicyLinter::isKind(const OpenElement& element, LocalPolicySettingKind eKind) const {
    return element.pSetting != nullptr && element.pSetting->kind == eKind;
}

void CPolicyLinter::addElement(const std::string& elementName) {
    OpenElement element;
    element.name = elementName;
    element.pSetting = FindLocalPolicySetting(elementName);
    if (element.pSetting != nullptr) {
        element.eRole = ElementRole::SETTING;
    } else if (elementName == kRootElement) {
        element.eRole = ElementRole::ROOT;
    } else if (elementName == kUpdatePolicyElement) {
        element.eRole = ElementRole::UPDATE_POLICY;
    }
    if (m_pParser != nullptr) {
        element.line = m_pParser->CurrentLine();
        element.column = m_pParser->CurrentColumn();
    }
    const bool bIsRoot = m_openElements.empty();
    if (!bIsRoot) {
        m_openElements.back().bHasChildren = true;
    }

    switch (element.eRole) {
        case ElementRole::UNKNOWN:
            element.bIgnored = true;
            report(element, findingkind::kUnknownElement,
                   (bIsRoot ? "The root element " + Quoted(elementName) + " is not " +
                                  Quoted(kRootElement) +
                                  ": the settings inside it are still read, but its "
                                  "version attribute is not."
                            : "Unknown element " + Quoted(elementName) +
                                  ": the reader ignores it and its text (known settings inside it "
                                  "still count).") +
                       didYouMean(SuggestName(elementName, m_knownNames)));
            break;
        case ElementRole::ROOT:
            break;
        case ElementRole::UPDATE_POLICY:
            if (m_uiOpenUpdatePolicies > 0) {
                report(element, findingkind::kNestedUpdatePolicy,
                       "\"UpdatePolicy\" inside \"UpdatePolicy\": when the inner one ends, the "
                       "reader treats the rest of the outer one as outside the section.");
            }
            ++m_uiOpenUpdatePolicies;
            m_bUpdatePolicySection = true;
            break;
        case ElementRole::SETTING:
            break;
    }
    if (element.pSetting != nullptr) {
        openSetting(element, *element.pSetting);
    }
    m_openElements.push_back(std::move(element));
}

void CPolicyLinter::openSetting(OpenElement& element, const LocalPolicySettingInfo& setting) {
    switch (setting.kind) {
        case LocalPolicySettingKind::SERVER_LIST:
            ++m_uiOpenServerLists;
            if (m_bUpdatePolicySection) {
                m_bAuthorizedServerList = true;
            } else {
                element.bIgnored = true;
                report(element, findingkind::kServerListOutsideSection,
                       Quoted(element.name) +
                           " outside \"UpdatePolicy\": the reader ignores it and every server "
                           "name in it.");
            }
            break;
        case LocalPolicySettingKind::SERVER_NAME:
            if (!m_bAuthorizedServerList) {
                element.bIgnored = true;
                // Inside an ignored list the list's own finding already says so.
                if (m_uiOpenServerLists == 0) {
                    report(element, findingkind::kServerNameOutsideList,
                           Quoted(element.name) +
                               " outside its list: the reader ignores it; authorized servers "
                               "belong in UpdatePolicy/AuthorizedServerList.");
                }
            }
            break;
        case LocalPolicySettingKind::UPDATE_PERMISSION:
            if (!m_bUpdatePolicySection) {
                element.bIgnored = true;
                report(element, findingkind::kUpdatePermissionOutsideSection,
                       Quoted(element.name) +
                           " outside \"UpdatePolicy\": the reader ignores it (and logs "
                           "\"Local Policy XML structure is incorrect.\"); move it into the "
                           "\"UpdatePolicy\" section.");
            } else {
                checkDuplicateSetting(element);
            }
            break;
        case LocalPolicySettingKind::FIPS_MODE:
        case LocalPolicySettingKind::FLAG:
        case LocalPolicySettingKind::CERT_STORE_EXCLUSION:
        case LocalPolicySettingKind::CACHING_LIST:
        case LocalPolicySettingKind::TUNNEL_PROTOCOL:
            checkDuplicateSetting(element);
            break;
    }
}

void CPolicyLinter::addAttribute(const std::string& attributeName,
                                 const std::string& attributeValue) {
    if (m_openElements.empty()) {
        return;
    }
    const OpenElement& element = m_openElements.back();
    if (element.eRole == ElementRole::ROOT) {
        // Compared like the reader does, without a list node per component of the text.
        if (attributeName == kVersionAttribute &&
            IsVersionTextGreater(attributeValue, kVersionSeparators,
                                 Version(kClientVersion, kVersionSeparators))) {
            report(element, findingkind::kNewerVersion,
                   "The file's version " + Quoted(attributeValue) +
                       " is newer than this client's " + Quoted(kClientVersion) +
                       ": the client reads it anyway and warns that unexpected behaviour "
                       "can result.");
        }
        return;
    }
    if (!element.bIgnored) {
        report(element, findingkind::kIgnoredAttribute,
               "Attribute " + Quoted(attributeName) + " of " + Quoted(element.name) +
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
    if (element.bIgnored || element.pSetting == nullptr) {
        return;
    }
    switch (element.pSetting->kind) {
        case LocalPolicySettingKind::FIPS_MODE:
        case LocalPolicySettingKind::FLAG:
        case LocalPolicySettingKind::CERT_STORE_EXCLUSION:
        case LocalPolicySettingKind::UPDATE_PERMISSION:
            checkBooleanText(element, elementValue);
            break;
        case LocalPolicySettingKind::CACHING_LIST:
            checkCachingList(element, elementValue);
            break;
        case LocalPolicySettingKind::TUNNEL_PROTOCOL:
            checkTunnelText(element, elementValue);
            break;
        case LocalPolicySettingKind::SERVER_NAME:
            checkServerName(element, elementValue);
            break;
        case LocalPolicySettingKind::SERVER_LIST:
            if (!isBlank(elementValue)) {
                report(element, findingkind::kServerListText,
                       "The text " + Quoted(elementValue) + " of " + Quoted(element.name) +
                           " is ignored: give each server in an element of its own (see "
                           "`qnpolicy generate --dry-run upal=...`).");
            }
            break;
    }
}

void CPolicyLinter::endElement(const std::string& /*elementName*/) {
    if (m_openElements.empty()) {
        return;
    }
    const OpenElement& element = m_openElements.back();
    checkEmptyElement(element);
    const bool bServerList = isKind(element, LocalPolicySettingKind::SERVER_LIST);
    const bool bUpdatePolicy = element.eRole == ElementRole::UPDATE_POLICY;
    m_openElements.pop_back();
    // The reader's flags, cleared at any such end tag whatever the nesting, exactly as it
    // does.
    if (bServerList) {
        m_bAuthorizedServerList = false;
        if (m_uiOpenServerLists > 0) {
            --m_uiOpenServerLists;
        }
    } else if (bUpdatePolicy) {
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
    switch (element.pSetting->kind) {
        case LocalPolicySettingKind::CERT_STORE_EXCLUSION:
            effect = "an exclusion once made stays, whatever a later occurrence says.";
            break;
        case LocalPolicySettingKind::CACHING_LIST:
            effect = "the lists are applied one after the other.";
            break;
        case LocalPolicySettingKind::TUNNEL_PROTOCOL:
            effect = "the last recognised value wins.";
            break;
        default:
            effect = "the last one wins.";
            break;
    }
    report(element, findingkind::kDuplicateSetting,
           Quoted(element.name) + " is given again (first at line " +
               std::to_string(inserted.first->second) +
               "): the reader applies every occurrence in document order, and " + effect);
}

void CPolicyLinter::checkBooleanText(const OpenElement& element, const std::string& text) {
    if (text == kTrue || text == kFalse) {
        return;
    }
    const std::string consequence = isKind(element, LocalPolicySettingKind::CERT_STORE_EXCLUSION)
                                        ? "which the reader ignores (only \"true\" excludes "
                                          "the store group)"
                                        : "which the reader takes as false";
    const std::string meant = lowerCase(trimmed(text));
    const std::string hint = meant == kTrue || meant == kFalse
                                 ? " Write " + Quoted(meant) + " exactly."
                                 : " Write \"true\" or \"false\".";
    report(element, findingkind::kNonBooleanValue,
           Quoted(element.name) + " holds " + Quoted(text) + ", " + consequence + "." + hint);
}

void CPolicyLinter::checkCachingList(const OpenElement& element, const std::string& text) {
    const std::vector<std::string>& optionTexts = LocalPolicyCachingOptionTexts();
    const std::vector<std::string> tokens = CStringUtils::tokenize(text, kCachingDelimiter);
    if (tokens.empty()) {
        report(element, findingkind::kEmptyValue,
               Quoted(element.name) + " holds " + Quoted(text) +
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
                   "Unknown caching option " + Quoted(*token) + " in " + Quoted(element.name) +
                       ": the reader takes it as \"false\", which clears every caching "
                       "restriction" +
                       (before.empty() ? std::string() : " (here " + before + ")") + "." +
                       didYouMean(SuggestName(*token, optionTexts)));
        } else if (!before.empty()) {
            report(element, findingkind::kCachingRestrictionsCleared,
                   "\"false\" in " + Quoted(element.name) + " clears the restrictions before it (" +
                       before + ").");
        }
        if (token + 1 != tokens.end()) {
            report(element, findingkind::kIgnoredCachingToken,
                   "The caching options after " + Quoted(*token) + " in " + Quoted(element.name) +
                       " are ignored: " + joinQuoted(token + 1, tokens.end()) + ".");
        }
        return;
    }
}

void CPolicyLinter::checkTunnelText(const OpenElement& element, const std::string& text) {
    const std::vector<std::string>& applied = LocalPolicyAppliedTunnelTexts();
    if (std::find(applied.begin(), applied.end(), text) != applied.end()) {
        return;
    }
    std::string hint =
        " The reader applies only " + joinQuoted(applied.begin(), applied.end()) + ", exactly.";
    const std::string lowered = lowerCase(trimmed(text));
    if (std::find(applied.begin(), applied.end(), lowered) != applied.end()) {
        hint += " Write " + Quoted(lowered) + ".";
    }
    report(element, findingkind::kTunnelValueNotApplied,
           Quoted(element.name) + " holds " + Quoted(text) +
               ", which the reader does not apply: the tunnel setting keeps its previous value (by "
               "default, no restriction)." +
               hint);
}

void CPolicyLinter::checkServerName(const OpenElement& element, const std::string& text) {
    const auto isSpace = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    if (!text.empty() && (isSpace(text.front()) || isSpace(text.back()))) {
        report(element, findingkind::kPaddedServerName,
               "Server name " + Quoted(text) +
                   " has blanks around it; the reader keeps them, so the name is authorized "
                   "with them.");
    }
    m_serverNames.push_back(ServerNameSeen{std::hash<std::string>()(text), m_serverNameTexts.size(),
                                           text.size(), element.line, element.column,
                                           &element.pSetting->element});
    m_serverNameTexts += text;
}

void CPolicyLinter::reportDuplicateServerNames() {
    const auto textOf = [this](const ServerNameSeen& seen) {
        return std::string_view(m_serverNameTexts).substr(seen.offset, seen.length);
    };
    // Equal names end up next to each other, in document order.
    std::vector<const ServerNameSeen*> sorted;
    sorted.reserve(m_serverNames.size());
    for (const ServerNameSeen& seen : m_serverNames) {
        sorted.push_back(&seen);
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&textOf](const ServerNameSeen* a, const ServerNameSeen* b) {
                         return a->hash != b->hash ? a->hash < b->hash : textOf(*a) < textOf(*b);
                     });
    for (size_t first = 0; first < sorted.size();) {
        size_t next = first + 1;
        while (next < sorted.size() && sorted[next]->hash == sorted[first]->hash &&
               textOf(*sorted[next]) == textOf(*sorted[first])) {
            const ServerNameSeen& again = *sorted[next];
            report(again.line, again.column, findingkind::kDuplicateServerName,
                   "Server name " + Quoted(textOf(again)) + " is listed again (first at line " +
                       std::to_string(sorted[first]->line) + ").",
                   *again.pElement);
            ++next;
        }
        first = next;
    }
}

void CPolicyLinter::checkEmptyElement(const OpenElement& element) {
    if (element.bIgnored || element.bHasText || element.pSetting == nullptr) {
        return;
    }
    switch (element.pSetting->kind) {
        case LocalPolicySettingKind::FIPS_MODE:
        case LocalPolicySettingKind::FLAG:
        case LocalPolicySettingKind::CERT_STORE_EXCLUSION:
        case LocalPolicySettingKind::UPDATE_PERMISSION:
        case LocalPolicySettingKind::CACHING_LIST:
        case LocalPolicySettingKind::TUNNEL_PROTOCOL:
            report(element, findingkind::kEmptyValue,
                   Quoted(element.name) +
                       (element.bHasChildren ? " holds elements instead of a value"
                                             : " has no value") +
                       ": the reader leaves the setting unchanged.");
            break;
        case LocalPolicySettingKind::SERVER_NAME:
            report(element, findingkind::kEmptyValue,
                   Quoted(element.name) + " has no value: the reader adds no server for it.");
            break;
        case LocalPolicySettingKind::SERVER_LIST:
            break;
    }
}

}  // namespace qnpolicy::tool
