// SPDX-License-Identifier: Apache-2.0
// The stated settings of a policy file, read, changed and rendered again (see PolicyEdits.h).

#include "commands/PolicyEdits.h"

#include <algorithm>

#include "MessageText.h"

namespace qnpolicy::tool {

namespace {

bool inUpdateSection(const LocalPolicySettingInfo& row) {
    return row.section != LocalPolicySection::ROOT;
}

// Watches the client's read and keeps what it applies, noting what it ignores.
class CStatedSettingsObserver : public ReadObserver {
  public:
    explicit CStatedSettingsObserver(StatedPolicy& rPolicy) : m_rPolicy(rPolicy) {}

    void OnRead(const ReadEvent& event) override {
        switch (event.eType) {
            case ReadEvent::START:
                onStart(event);
                break;
            case ReadEvent::TEXT:
                onText(event);
                break;
            case ReadEvent::END:
                if (event.pSetting != nullptr &&
                    event.pSetting->kind == LocalPolicySettingKind::SERVER_LIST) {
                    m_listIndex = kNoList;
                }
                break;
            case ReadEvent::ATTRIBUTE:
                break;
        }
    }

  private:
    static constexpr size_t kNoList = static_cast<size_t>(-1);

    void onStart(const ReadEvent& event) {
        if (event.eAction != ReadAction::READ) {
            drop(event, "the element <" + std::string(event.element) +
                            ">, which the client ignores where it stands");
        } else if (event.pSetting != nullptr &&
                   event.pSetting->kind == LocalPolicySettingKind::SERVER_LIST) {
            m_listIndex = m_rPolicy.settings.size();
            m_rPolicy.settings.push_back(StatedSetting{event.pSetting->element, "", true});
        }
    }

    void onText(const ReadEvent& event) {
        if (event.pSetting == nullptr || event.eAction == ReadAction::IGNORED_OUTSIDE_SECTION) {
            return;  // an ignored element's text: the element is listed already
        }
        if (event.eAction == ReadAction::UNCHANGED) {
            drop(event, "the text " + Quoted(std::string(event.text)) + " of <" +
                            event.pSetting->element + ">, which the client does not apply");
        } else if (event.pSetting->kind == LocalPolicySettingKind::SERVER_NAME) {
            if (m_listIndex != kNoList) {
                std::string& names = m_rPolicy.settings[m_listIndex].text;
                names += (names.empty() ? "" : ";") + std::string(event.text);
            }
        } else {
            m_rPolicy.settings.push_back(StatedSetting{event.pSetting->element,
                                                       std::string(event.text),
                                                       inUpdateSection(*event.pSetting)});
        }
    }

    void drop(const ReadEvent& event, std::string what) {
        m_rPolicy.dropped.push_back(DroppedItem{event.line, event.column, std::move(what)});
    }

    StatedPolicy& m_rPolicy;
    size_t m_listIndex = kNoList;
};

// The comments and processing instructions (but the XML declaration) of a well-formed
// document, which the reader never sees: "<!--" and "<?" start nothing else outside a CDATA
// section, where listing one too many only asks for --force.
void findMarkupTheReaderSkips(std::string_view bytes, std::vector<DroppedItem>& rDropped) {
    unsigned long line = 1;
    size_t lineStart = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '\n') {
            ++line;
            lineStart = i + 1;
        } else if (bytes.compare(i, 4, "<!--") == 0 || (i > 0 && bytes.compare(i, 2, "<?") == 0)) {
            rDropped.push_back(
                DroppedItem{line, static_cast<unsigned long>(i - lineStart + 1),
                            bytes[i + 1] == '!' ? "a comment" : "a processing instruction"});
        }
    }
}

}  // namespace

bool ReadStatedPolicy(std::string_view bytes, const std::string& name, StatedPolicy& rPolicy) {
    CStatedSettingsObserver observer(rPolicy);
    ReadOptions options;
    options.bLog = false;
    options.pObserver = &observer;
    const DocumentRead read = ReadPolicyBytes(bytes, name, options);
    if (read.status != 0) {
        rPolicy.failureLine = read.line;
        rPolicy.failureColumn = read.column;
        rPolicy.failureReason = read.reason;
        return false;
    }
    findMarkupTheReaderSkips(bytes, rPolicy.dropped);
    std::stable_sort(rPolicy.dropped.begin(), rPolicy.dropped.end(),
                     [](const DroppedItem& a, const DroppedItem& b) {
                         return a.line != b.line ? a.line < b.line : a.column < b.column;
                     });
    return true;
}

void SetStatedSetting(std::vector<StatedSetting>& rSettings, const LocalPolicySettingInfo& row,
                      const std::string& text) {
    const auto first = std::find_if(
        rSettings.begin(), rSettings.end(),
        [&row](const StatedSetting& setting) { return setting.element == row.element; });
    if (first != rSettings.end()) {
        first->text = text;
        rSettings.erase(std::remove_if(first + 1, rSettings.end(),
                                       [&row](const StatedSetting& setting) {
                                           return setting.element == row.element;
                                       }),
                        rSettings.end());
        return;
    }
    const bool bUpdate = inUpdateSection(row);
    auto position = rSettings.end();
    auto lastOfSection = rSettings.end();
    for (auto it = rSettings.begin(); it != rSettings.end(); ++it) {
        if (it->bUpdateSection != bUpdate) {
            continue;
        }
        if (it->element > row.element) {
            position = it;
            break;
        }
        lastOfSection = it;
    }
    if (position == rSettings.end() && lastOfSection != rSettings.end()) {
        position = lastOfSection + 1;
    } else if (position == rSettings.end() && !bUpdate) {
        // The first ordinary setting goes before the update section, as generate writes it.
        position =
            std::find_if(rSettings.begin(), rSettings.end(),
                         [](const StatedSetting& setting) { return setting.bUpdateSection; });
    }
    rSettings.insert(position, StatedSetting{row.element, text, bUpdate});
}

void UnsetStatedSetting(std::vector<StatedSetting>& rSettings, const LocalPolicySettingInfo& row) {
    rSettings.erase(std::remove_if(rSettings.begin(), rSettings.end(),
                                   [&row](const StatedSetting& setting) {
                                       return setting.element == row.element;
                                   }),
                    rSettings.end());
}

}  // namespace qnpolicy::tool
