// SPDX-License-Identifier: Apache-2.0
// qnpolicy show --origin: the effective policy with where each value comes from.

#include "commands/ShowOrigin.h"

#include <sys/stat.h>

#include <algorithm>

#include "MessageText.h"
#include "ToolContext.h"
#include "origin/EffectivePolicy.h"
#include "output/Output.h"

namespace qnpolicy::tool {

ShowOperands SortShowOperands(const std::vector<std::string>& words, bool bOrigin) {
    ShowOperands operands;
    std::vector<std::string> names;
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        names.push_back(row.element);
    }
    for (const std::string& word : words) {
        const LocalPolicySettingInfo* pRow = bOrigin ? FindSettingByName(word) : nullptr;
        if (pRow != nullptr) {
            if (std::find(operands.selection.begin(), operands.selection.end(), pRow) ==
                operands.selection.end()) {
                operands.selection.push_back(pRow);
            }
            continue;
        }
        struct stat status {};
        if (bOrigin && word != kStandardInput && ::stat(word.c_str(), &status) != 0 &&
            operands.error.empty() && !SuggestName(word, names).empty()) {
            operands.error =
                "no setting and no file is named " + Quoted(word) + "." + DidYouMean(word, names);
        }
        operands.files.push_back(word);
    }
    if (operands.error.empty() && operands.files.size() > 1) {
        operands.error =
            bOrigin ? "one FILE at most: " + Join(operands.files, ", ", true) + " name no setting"
                    : "one FILE at most (settings are named with --origin)";
    }
    return operands;
}

const char* FailedReadConsequence(const DocumentRead& read) {
    return read.line != 0 ? kUnreadableFileConsequence : kMissingFileConsequence;
}

std::string CannotLoadMessage(const std::string& path, const DocumentRead& read) {
    return "cannot load " + Quoted(path) +
           (read.line != 0 ? " at line " + std::to_string(read.line) + ", column " +
                                 std::to_string(read.column)
                           : std::string()) +
           ": " + read.reason + " (`qnpolicy check` lists every flaw). " +
           FailedReadConsequence(read);
}

int ShowOrigins(CToolContext& context, const std::string& path, const std::string* pContent,
                const SettingSelection& selection) {
    const EffectivePolicy policy = pContent != nullptr
                                       ? ReadEffectivePolicyBytes(*pContent, path, true)
                                       : ReadEffectivePolicyFile(path, path, true);
    const bool bJson = context.Options().bJson;
    if (policy.Complete()) {
        if (bJson) {
            WriteOriginsJson(context.Out(), policy, selection);
        } else {
            PrintOrigins(context.Out(), policy, selection);
        }
        return kExitSuccess;
    }
    const DocumentRead& read = policy.read;
    if (bJson) {
        CJsonWriter json(context.Out());
        json.BeginObject().Key("formatVersion").Number(1).Key("loaded").Bool(false);
        json.Key("policyFile").String(path).Key("error").BeginObject();
        json.Key("kind").String(errorkind::kUnreadable).Key("message").String(read.reason);
        json.Key("line").Number(read.line).Key("column").Number(read.column);
        json.Key("consequence").String(FailedReadConsequence(read)).EndObject();
        json.Key("settings");
        WriteOriginSettingsJson(json, policy, selection);
        json.EndObject().Finish();
    }
    context.Error(CannotLoadMessage(path, read));
    if (!bJson) {
        PrintOrigins(context.Out(), policy, selection);
    }
    return kExitUnreadable;
}

}  // namespace qnpolicy::tool
