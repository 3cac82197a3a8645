// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_POLICYEDITS_H
#define QNPOLICY_POLICYEDITS_H

// A policy file as the settings it states, in its own order, so that set and unset change the
// settings they name and nothing else: the file is read once by the client's reader (observed),
// each setting element whose text the reader applies is kept with that text, and the document
// is rendered again in the same order, in the form generate writes. A generated file comes back
// byte for byte; what the rendering cannot keep (comments, elements and texts the client
// ignores) is listed, so that nothing is dropped without the administrator's word.
//
//   StatedPolicy policy;
//   if (ReadStatedPolicy(bytes, path, policy)) {
//       SetStatedSetting(policy.settings, *row, "true");
//       RenderPolicyDocumentInOrder(policy.settings, directory, document);
//   }

#include <string>
#include <string_view>
#include <vector>

#include "LocalPolicyDocument.h"
#include "lint/PolicyLinter.h"

namespace qnpolicy::tool {

// Something in a file that rendering its stated settings again would not keep.
struct DroppedItem {
    unsigned long line = 0;  // where it starts, 1-based
    unsigned long column = 0;
    std::string what;  // "a comment", "the element <Foo>, which the client ignores", ...
};

struct StatedPolicy {
    // The settings the reader applied, in document order; a server list with its names
    // joined by ";". A setting stated twice is here twice, as the client reads it.
    std::vector<StatedSetting> settings;
    std::vector<DroppedItem> dropped;  // in document order
    // Unreadable (not well-formed, a DOCTYPE, over a limit): where and why.
    unsigned long failureLine = 0;
    unsigned long failureColumn = 0;
    std::string failureReason;
};

// Reads bytes as the client does; false when the client could not read them to their end.
bool ReadStatedPolicy(std::string_view bytes, const std::string& name, StatedPolicy& rPolicy);

// Gives row's setting the text: the first element that states it takes the text and any later
// one is removed; a setting not stated yet is inserted in name order among the settings of its
// section (after the last one there when none sorts after it), which is where generate puts it.
void SetStatedSetting(std::vector<StatedSetting>& rSettings, const LocalPolicySettingInfo& row,
                      const std::string& text);
// Removes every element of row's setting, so that its default holds.
void UnsetStatedSetting(std::vector<StatedSetting>& rSettings, const LocalPolicySettingInfo& row);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_POLICYEDITS_H
