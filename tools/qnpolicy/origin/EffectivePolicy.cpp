// SPDX-License-Identifier: Apache-2.0
// The effective policy with its origins: an observer of the reader's pass, the model it
// completes, and the comparison of two such policies.

#include "EffectivePolicy.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "LocalPolicyKinds.h"
#include "LocalPolicyReader.h"

namespace qnpolicy::tool {

const char kNextStartExplanation[] =
    "a running client keeps the FIPS mode of its first load until it restarts, so a change takes "
    "effect at its next start; but a missing or unreadable file turns FIPS mode off at its next "
    "load";

const char* ContributionText(Contribution eContribution) {
    switch (eContribution) {
        case Contribution::SETS:
            return "sets";
        case Contribution::ADDS:
            return "adds";
        case Contribution::OVERRIDDEN:
            return "overridden";
        case Contribution::UNCHANGED:
            return "unchanged";
        case Contribution::FORCES:
            return "forces";
    }
    return "sets";
}

TakesEffect WhenChangeTakesEffect(const LocalPolicySettingInfo& row) {
    return row.kind == LocalPolicySettingKind::FIPS_MODE ? TakesEffect::NEXT_START
                                                         : TakesEffect::NEXT_LOAD;
}

const char* TakesEffectText(TakesEffect eTakesEffect) {
    return eTakesEffect == TakesEffect::NEXT_START ? "next-start" : "next-load";
}

const SettingOrigin& EffectivePolicy::Of(const LocalPolicySettingInfo& row) const {
    for (const SettingOrigin& setting : settings) {
        if (setting.pRow == &row) {
            return setting;
        }
    }
    throw std::logic_error("effective policy without the setting " + row.element);
}

namespace {

size_t rowIndex(const LocalPolicySettingInfo& row) {
    return static_cast<size_t>(&row - LocalPolicySettings().data());
}

// The record as a first load leaves it after these texts: its FIPS flag is the file's.
void settleFipsMode(LocalQNPolicyInfo& rRecord, bool bFileUseFIPSMode) {
    XmlLocalQNPolMgr::RETAINED_FIPS_MODE retained = XmlLocalQNPolMgr::NONE;
    ApplyFipsRetention(retained, bFileUseFIPSMode, rRecord, false);
}

// Whether a setting's value follows its own stored flag in record, or another setting decides
// it whatever the flag says.
bool followsItsOwnFlag(const LocalPolicySettingInfo& row, const LocalQNPolicyInfo& record) {
    LocalQNPolicyInfo on = record;
    LocalQNPolicyInfo off = record;
    (on.*(row.setter))(true);
    (off.*(row.setter))(false);
    const LocalPolicyKind& kind = KindOf(row.kind);
    return kind.effective(row, on) != kind.effective(row, off);
}

// What the elements of one setting did, as the read goes.
struct RowContributions {
    std::vector<ContributingElement> current;  // what the value is made of now
    std::vector<ContributingElement> earlier;  // overridden or unchanged, up to the cap
    unsigned long omitted = 0;                 // beyond the cap
    SourcePosition origin;                     // the element that decided the value
};

// Watches the reader's pass: the position of each element that counts, what its text did to
// its setting, each server's element and the version's.
class COriginTracker : public ReadObserver {
  public:
    // Everything it keeps per setting is allocated before the read.
    COriginTracker() : m_rows(LocalPolicySettings().size()) {
        m_settings.reserve(LocalPolicySettings().size());
    }

    void OnRead(const ReadEvent& event) override {
        switch (event.eType) {
            case ReadEvent::START:
                onStart(event);
                break;
            case ReadEvent::TEXT:
                onText(event);
                break;
            case ReadEvent::ATTRIBUTE:
                if (event.eAction == ReadAction::READ ||
                    event.eAction == ReadAction::NEWER_VERSION) {
                    m_versionOrigin = SourcePosition{event.line, event.column};
                }
                break;
            case ReadEvent::END:
                break;
        }
    }

    // Completes the policy whose read this tracker watched.
    void Finish(EffectivePolicy& rPolicy);

  private:
    void onStart(const ReadEvent& event) {
        m_pOpenRow = event.eAction == ReadAction::READ ? event.pSetting : nullptr;
        m_openPosition = SourcePosition{event.line, event.column};
        if (m_pOpenRow != nullptr && m_pOpenRow->kind == LocalPolicySettingKind::SERVER_LIST) {
            RowContributions& row = m_rows[rowIndex(*m_pOpenRow)];
            row.current.push_back({m_pOpenRow->element, m_openPosition, std::string(),
                                   row.current.empty() ? Contribution::SETS : Contribution::ADDS});
            row.origin = m_openPosition;
        }
    }

    void onText(const ReadEvent& event);
    void keepEarlier(RowContributions& row, ContributingElement element, Contribution eNow);
    void applyForcing(const LocalPolicySettingInfo& row);

    std::vector<RowContributions> m_rows;   // by catalogue index
    std::vector<SettingOrigin> m_settings;  // what Finish hands over
    // The element whose text comes next, when it is a setting that counts there.
    const LocalPolicySettingInfo* m_pOpenRow = nullptr;
    SourcePosition m_openPosition;
    std::vector<SourcePosition> m_serverOrigins;
    SourcePosition m_versionOrigin;
    // The record the applied texts give, servers aside: the reader's texts in the reader's
    // order through the same kinds table, so it holds what the client's record holds.
    LocalQNPolicyInfo m_replayed;
    bool m_bReplayedFips = false;
};

void COriginTracker::keepEarlier(RowContributions& row, ContributingElement element,
                                 Contribution eNow) {
    if (row.earlier.size() >= kMaxFindingsPerKind) {
        ++row.omitted;
        return;
    }
    element.eContribution = eNow;
    row.earlier.push_back(std::move(element));
}

// A text that changed its setting replaces what came before when it alone gives the value the
// setting now has (the last of an on/off setting wins, a caching list with "false" clears the
// earlier ones), and adds to it otherwise (a caching list adds its options).
void COriginTracker::onText(const ReadEvent& event) {
    const LocalPolicySettingInfo* pRow = m_pOpenRow;
    if (pRow == nullptr || event.pSetting != pRow) {
        return;
    }
    if (pRow->kind == LocalPolicySettingKind::SERVER_NAME) {
        if (event.eAction == ReadAction::READ) {
            m_serverOrigins.push_back(m_openPosition);
        }
        return;
    }
    RowContributions& row = m_rows[rowIndex(*pRow)];
    ContributingElement element{pRow->element, m_openPosition, std::string(event.text),
                                Contribution::SETS};
    if (event.eAction == ReadAction::UNCHANGED) {
        keepEarlier(row, std::move(element), Contribution::UNCHANGED);
        return;
    }
    if (event.eAction != ReadAction::READ) {
        return;
    }
    const LocalPolicyKind& kind = KindOf(pRow->kind);
    kind.apply(*pRow, element.text, m_replayed, m_bReplayedFips);
    settleFipsMode(m_replayed, m_bReplayedFips);
    LocalQNPolicyInfo alone;
    bool bAloneFips = false;
    kind.apply(*pRow, element.text, alone, bAloneFips);
    settleFipsMode(alone, bAloneFips);
    if (kind.effective(*pRow, m_replayed) == kind.effective(*pRow, alone)) {
        for (ContributingElement& replaced : row.current) {
            keepEarlier(row, std::move(replaced), Contribution::OVERRIDDEN);
        }
        row.current.clear();
    } else {
        element.eContribution = Contribution::ADDS;
    }
    row.origin = element.position;
    row.current.push_back(std::move(element));
}

// An on/off setting that another decides (a restricted server store reads as strict trust):
// each deciding setting's element joins its contributors; where the value is not what the
// setting's own elements give, that element is its origin and theirs are overridden.
void COriginTracker::applyForcing(const LocalPolicySettingInfo& row) {
    if (followsItsOwnFlag(row, m_replayed)) {
        return;
    }
    RowContributions& contributions = m_rows[rowIndex(row)];
    const LocalPolicyKind& kind = KindOf(row.kind);
    for (const LocalPolicySettingInfo& other : LocalPolicySettings()) {
        if (&other == &row || other.setter == nullptr) {
            continue;
        }
        LocalQNPolicyInfo flipped = m_replayed;
        (flipped.*(other.setter))(!(m_replayed.*(other.getter))());
        const RowContributions& forcing = m_rows[rowIndex(other)];
        if (!followsItsOwnFlag(row, flipped) || forcing.current.empty()) {
            continue;  // it does not decide, or decides at its default: no element to name
        }
        ContributingElement element = forcing.current.back();
        element.eContribution = Contribution::FORCES;
        if (kind.effective(row, flipped) != kind.effective(row, m_replayed)) {
            for (ContributingElement& replaced : contributions.current) {
                keepEarlier(contributions, std::move(replaced), Contribution::OVERRIDDEN);
            }
            contributions.current.clear();
            contributions.origin = element.position;
        }
        contributions.current.push_back(std::move(element));
    }
}

void COriginTracker::Finish(EffectivePolicy& rPolicy) {
    const LocalQNPolicyInfo& record = rPolicy.read.record;
    rPolicy.serverOrigins = std::move(m_serverOrigins);
    rPolicy.versionOrigin = m_versionOrigin;
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        const LocalPolicyKind& kind = KindOf(row.kind);
        RowContributions& contributions = m_rows[rowIndex(row)];
        // What the elements give is not what the client holds: a FIPS mode read before an
        // error, which the client turns off.
        if (kind.shape != ValueShape::LIST && kind.shape != ValueShape::NONE &&
            kind.effective(row, record) != kind.effective(row, m_replayed)) {
            for (ContributingElement& replaced : contributions.current) {
                keepEarlier(contributions, std::move(replaced), Contribution::OVERRIDDEN);
            }
            contributions.current.clear();
            contributions.origin = SourcePosition();
        }
    }
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        if (row.setter != nullptr) {
            applyForcing(row);
        }
    }
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        const LocalPolicyKind& kind = KindOf(row.kind);
        if (kind.shape == ValueShape::NONE) {
            continue;  // the server names are the list's entries, with their own origins
        }
        RowContributions& contributions = m_rows[rowIndex(row)];
        SettingOrigin setting;
        setting.pRow = &row;
        if (kind.shape != ValueShape::LIST) {
            setting.value = kind.effective(row, record);
        }
        setting.origin = contributions.origin;
        setting.omittedContributors = contributions.omitted;
        setting.contributors = std::move(contributions.earlier);
        std::move(contributions.current.begin(), contributions.current.end(),
                  std::back_inserter(setting.contributors));
        std::stable_sort(setting.contributors.begin(), setting.contributors.end(),
                         [](const ContributingElement& a, const ContributingElement& b) {
                             return std::make_pair(a.position.line, a.position.column) <
                                    std::make_pair(b.position.line, b.position.column);
                         });
        m_settings.push_back(std::move(setting));
    }
    rPolicy.settings = std::move(m_settings);
}

// What the client ignores is all a linted effective policy needs of the linter.
constexpr LintScope kOriginLintScope = LintScope::ALL_BUT_REPEATED_SERVERS;

ReadOptions observedBy(COriginTracker& tracker) {
    ReadOptions options;
    options.bLog = false;
    options.pObserver = &tracker;
    return options;
}

}  // namespace

EffectivePolicy ReadEffectivePolicyFile(const std::string& path, const std::string& file,
                                        bool bLint) {
    COriginTracker tracker;
    LintResult lint;
    // Built in place: the record of a large server list is not copied.
    EffectivePolicy policy{file,
                           bLint ? ReadLintedPolicyFile(path, tracker, kOriginLintScope, lint)
                                 : ReadPolicyFile(path, observedBy(tracker)),
                           {},
                           {},
                           {},
                           {}};
    policy.lint = std::move(lint);
    tracker.Finish(policy);
    return policy;
}

EffectivePolicy ReadEffectivePolicyBytes(std::string_view bytes, const std::string& file,
                                         bool bLint) {
    COriginTracker tracker;
    LintResult lint;
    EffectivePolicy policy{file,
                           bLint
                               ? ReadLintedPolicyBytes(bytes, file, tracker, kOriginLintScope, lint)
                               : ReadPolicyBytes(bytes, file, observedBy(tracker)),
                           {},
                           {},
                           {},
                           {}};
    policy.lint = std::move(lint);
    tracker.Finish(policy);
    return policy;
}

std::vector<SettingChange> ComparePolicies(const EffectivePolicy& oldPolicy,
                                           const EffectivePolicy& newPolicy) {
    std::vector<SettingChange> changes;
    const size_t count = std::min(oldPolicy.settings.size(), newPolicy.settings.size());
    for (size_t i = 0; i < count; ++i) {
        const SettingOrigin& before = oldPolicy.settings[i];
        const SettingOrigin& after = newPolicy.settings[i];
        if (KindOf(before.pRow->kind).shape != ValueShape::LIST) {
            if (before.value != after.value) {
                changes.push_back(SettingChange{&before, &after, 0});
            }
            continue;
        }
        const std::list<std::string>& oldServers = oldPolicy.Servers();
        const std::list<std::string>& newServers = newPolicy.Servers();
        const auto [oldAt, newAt] = std::mismatch(oldServers.begin(), oldServers.end(),
                                                  newServers.begin(), newServers.end());
        if (oldAt != oldServers.end() || newAt != newServers.end()) {
            changes.push_back(SettingChange{
                &before, &after, static_cast<size_t>(std::distance(oldServers.begin(), oldAt))});
        }
    }
    return changes;
}

const LocalPolicySettingInfo* FindSettingByName(std::string_view word) {
    const LocalPolicySettingInfo* pFound = nullptr;
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        if (word == row.element || (!row.abbreviation.empty() && word == row.abbreviation)) {
            pFound = &row;
            break;
        }
        if (pFound == nullptr &&
            (SameTextIgnoringCase(word, row.element) ||
             (!row.abbreviation.empty() && SameTextIgnoringCase(word, row.abbreviation)))) {
            pFound = &row;
        }
    }
    if (pFound != nullptr && pFound->kind == LocalPolicySettingKind::SERVER_NAME) {
        return FindLocalPolicySettingOfKind(LocalPolicySettingKind::SERVER_LIST);
    }
    return pFound;
}

}  // namespace qnpolicy::tool
