#include "ArgumentCheck.h"

#include <strings.h>  // strcasecmp

#include <algorithm>

#include "NameSuggestion.h"
#include "TextFormat.h"

namespace qnpolicy::tool {

namespace {

constexpr char kInvalidArgument[] = "invalid-argument";
constexpr char kEmptyValue[] = "empty-value";
constexpr char kUnknownAbbreviation[] = "unknown-abbreviation";
constexpr char kValueNotAllowed[] = "value-not-allowed";
constexpr char kDuplicateArgument[] = "duplicate-argument";

bool valueIsAllowed(const LocalPolicySetting& setting, const std::string& value) {
    return setting.listAllowedValues.empty() ||
           std::any_of(setting.listAllowedValues.begin(), setting.listAllowedValues.end(),
                       [&value](const std::string& allowed) {
                           return ::strcasecmp(allowed.c_str(), value.c_str()) == 0;
                       });
}

std::string listOf(const std::list<std::string>& values) {
    std::string text;
    for (const std::string& value : values) {
        text += (text.empty() ? "" : ", ") + Quoted(value);
    }
    return text;
}

}  // namespace

ArgumentCheck CheckInstallerArguments(const std::vector<std::string>& policyArgs,
                                      const std::map<std::string, LocalPolicySetting>& vocabulary) {
    std::vector<std::string> abbreviations;
    abbreviations.reserve(vocabulary.size());
    for (const auto& entry : vocabulary) {
        abbreviations.push_back(entry.first);
    }
    ArgumentCheck check;
    const auto skip = [&check](const std::string& argument, const char* kind,
                               const std::string& message) {
        check.skipped.push_back(SkippedArgument{argument, kind, message});
    };
    for (const std::string& argument : policyArgs) {
        const size_t equals = argument.find('=');
        if (equals == std::string::npos) {
            skip(argument, kInvalidArgument,
                 "no \"=\": arguments take the form abbreviation=value (see `qnpolicy "
                 "vocabulary`)");
            continue;
        }
        const std::string abbreviation = argument.substr(0, equals);
        const std::string value = argument.substr(equals + 1);
        if (value.empty()) {
            skip(argument, kEmptyValue, "the value is empty, so the setting would not be written");
            continue;
        }
        const auto row = vocabulary.find(abbreviation);
        if (row == vocabulary.end()) {
            const std::string suggestion = SuggestName(abbreviation, abbreviations);
            skip(argument, kUnknownAbbreviation,
                 "unknown abbreviation " + Quoted(abbreviation) +
                     (suggestion.empty() ? std::string()
                                         : "; did you mean " + Quoted(suggestion) + "?") +
                     " (abbreviations are case-sensitive)");
            continue;
        }
        const LocalPolicySetting& setting = row->second;
        if (!valueIsAllowed(setting, value)) {
            skip(argument, kValueNotAllowed,
                 Quoted(value) + " is not an allowed value for " + Quoted(setting.tstrFullName) +
                     "; allowed (ignoring case): " + listOf(setting.listAllowedValues));
            continue;
        }
        const auto used = check.argumentOfElement.emplace(setting.tstrFullName, argument);
        if (!used.second) {
            skip(argument, kDuplicateArgument,
                 Quoted(setting.tstrFullName) + " is already set by " + Quoted(used.first->second) +
                     ", whose value is used");
        }
    }
    return check;
}

}  // namespace qnpolicy::tool
