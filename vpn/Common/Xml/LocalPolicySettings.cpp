// SPDX-License-Identifier: Apache-2.0
// The settings catalogue's table and its lookups.

#include "LocalPolicySettings.h"

#include <array>
#include <utility>

#include "LocalPolicyKinds.h"
#include "LocalQNPolicyOptionTexts.h"
#include "XmlLocalQNPolMgrConstants.h"

namespace {

// Where an element of each kind counts.
LocalPolicySection sectionOf(LocalPolicySettingKind kind) {
    switch (kind) {
        case LocalPolicySettingKind::UPDATE_PERMISSION:
        case LocalPolicySettingKind::SERVER_LIST:
            return LocalPolicySection::UPDATE_POLICY;
        case LocalPolicySettingKind::SERVER_NAME:
            return LocalPolicySection::AUTHORIZED_SERVER_LIST;
        default:
            return LocalPolicySection::ROOT;
    }
}

// A catalogue row built by name, one fact per call, so that a row reads without counting
// positions:
//
//   setting("BypassDownloader", LocalPolicySettingKind::FLAG)
//       .reads("BypassDownloader", &LocalQNPolicyInfo::BypassDownloader)
//       .sets(&LocalQNPolicyInfo::BypassDownloader)
//       .installer("bd", {"false", "true"})
//       .describe("Bypasses the client's downloader.")
class RowBuilder {
  public:
    RowBuilder(std::string element, LocalPolicySettingKind kind) {
        m_row.element = std::move(element);
        m_row.kind = kind;
        m_row.section = sectionOf(kind);
    }
    // The certificate-store group mask "true" adds.
    RowBuilder&& excludes(uint32_t mask) && {
        m_row.excludeMask = mask;
        return std::move(*this);
    }
    // The record getter that reads the setting, by name and, for an on/off setting, itself.
    RowBuilder&& reads(std::string accessor,
                       bool (LocalQNPolicyInfo::*getter)() const = nullptr) && {
        m_row.accessor = std::move(accessor);
        m_row.getter = getter;
        return std::move(*this);
    }
    // The boolean setter the reader calls.
    RowBuilder&& sets(void (LocalQNPolicyInfo::*setter)(bool)) && {
        m_row.setter = setter;
        return std::move(*this);
    }
    // The installer abbreviation and the values it accepts, in the vocabulary's order (none:
    // any value).
    RowBuilder&& installer(std::string abbreviation, std::vector<std::string> values) && {
        m_row.abbreviation = std::move(abbreviation);
        m_row.allowedValues = std::move(values);
        return std::move(*this);
    }
    RowBuilder&& describe(std::string description) && {
        m_row.description = std::move(description);
        return std::move(*this);
    }
    // The finished row, where the catalogue's list asks for one.
    operator LocalPolicySettingInfo() && { return std::move(m_row); }

  private:
    LocalPolicySettingInfo m_row;
};

RowBuilder setting(std::string element, LocalPolicySettingKind kind) {
    return RowBuilder(std::move(element), kind);
}

// One row per element, the installer settings in the order the vocabulary defines them, then
// the server name. A description says what the setting is, and nothing the client is not known
// to do with it; a setting's default is the record's own (LocalPolicyDefaultText).
std::vector<LocalPolicySettingInfo> buildCatalogue() {
    return {
        setting("FipsMode", LocalPolicySettingKind::FIPS_MODE)
            .reads("UseFIPSMode", &LocalQNPolicyInfo::UseFIPSMode)
            .installer("fm", {"false", "true"})
            .describe("Runs the client in FIPS mode. The first load that finds and parses the file "
                      "fixes the "
                      "mode, and every later load that finds and parses the file applies that mode "
                      "again, even "
                      "when the file now states another; a load that finds no file, or cannot "
                      "parse it, turns "
                      "FIPS mode off."),
        setting("BypassDownloader", LocalPolicySettingKind::FLAG)
            .reads("BypassDownloader", &LocalQNPolicyInfo::BypassDownloader)
            .sets(&LocalQNPolicyInfo::BypassDownloader)
            .installer("bd", {"false", "true"})
            .describe("Bypasses the client's downloader."),
        setting("BypassDefaultLocalization", LocalPolicySettingKind::FLAG)
            .reads("BypassDefaultLocalization", &LocalQNPolicyInfo::BypassDefaultLocalization)
            .sets(&LocalQNPolicyInfo::BypassDefaultLocalization)
            .installer("bdl", {"false", "true"})
            .describe("Bypasses the client's default localization."),
        setting("RestrictScriptWebDeploy", LocalPolicySettingKind::FLAG)
            .reads("RestrictScriptWebDeploy", &LocalQNPolicyInfo::RestrictScriptWebDeploy)
            .sets(&LocalQNPolicyInfo::RestrictScriptWebDeploy)
            .installer("rswd", {"false", "true"})
            .describe("Forbids the deployment of scripts from the web."),
        setting("RestrictHelpWebDeploy", LocalPolicySettingKind::FLAG)
            .reads("RestrictHelpWebDeploy", &LocalQNPolicyInfo::RestrictHelpWebDeploy)
            .sets(&LocalQNPolicyInfo::RestrictHelpWebDeploy)
            .installer("rhwd", {"false", "true"})
            .describe("Forbids the deployment of help from the web."),
        setting("RestrictResourceWebDeploy", LocalPolicySettingKind::FLAG)
            .reads("RestrictResourceWebDeploy", &LocalQNPolicyInfo::RestrictResourceWebDeploy)
            .sets(&LocalQNPolicyInfo::RestrictResourceWebDeploy)
            .installer("rrwd", {"false", "true"})
            .describe("Forbids the deployment of resources from the web."),
        setting("RestrictLocalizationWebDeploy", LocalPolicySettingKind::FLAG)
            .reads("RestrictLocalizationWebDeploy",
                   &LocalQNPolicyInfo::RestrictLocalizationWebDeploy)
            .sets(&LocalQNPolicyInfo::RestrictLocalizationWebDeploy)
            .installer("rlwd", {"false", "true"})
            .describe("Forbids the deployment of localization from the web."),
        setting("RestrictWebLaunch", LocalPolicySettingKind::FLAG)
            .reads("RestrictWebLaunchMode", &LocalQNPolicyInfo::RestrictWebLaunchMode)
            .sets(&LocalQNPolicyInfo::RestrictWebLaunchMode)
            .installer("rwl", {"false", "true"})
            .describe("Restricts web launch."),
        setting("StrictCertificateTrust", LocalPolicySettingKind::FLAG)
            .reads("StrictCertTrustMode", &LocalQNPolicyInfo::StrictCertTrustMode)
            .sets(&LocalQNPolicyInfo::StrictCertTrustMode)
            .installer("sct", {"false", "true"})
            .describe("Makes certificate trust strict. A restricted server certificate store "
                      "(RestrictServerCertStore true) makes it strict as well, whatever this "
                      "element says."),
        setting("EnableCRLCheck", LocalPolicySettingKind::FLAG)
            .reads("IsCRLCheckEnabled", &LocalQNPolicyInfo::IsCRLCheckEnabled)
            .sets(&LocalQNPolicyInfo::EnableCRLCheck)
            .installer("ecc", {"true", "false"})
            .describe("Turns on certificate revocation list (CRL) checking."),
        setting("OCSPRevocation", LocalPolicySettingKind::FLAG)
            .reads("IsOCSPRevocationEnabled", &LocalQNPolicyInfo::IsOCSPRevocationEnabled)
            .sets(&LocalQNPolicyInfo::EnableOCSPRevocation)
            .installer("orc", {"false", "true"})
            .describe("Turns on OCSP revocation checking."),
        setting("RestrictPreferenceCaching", LocalPolicySettingKind::CACHING_LIST)
            .reads("RestrictPrefCaching")
            .installer("rpc", {})
            .describe(
                "Lists the preference values that may not be cached: Credentials, Thumbprints, "
                "CredentialsAndThumbprints, AutomaticServerSelection or All, separated by commas "
                "and "
                "nothing else. The client does not trim the options: false or an unknown option "
                "anywhere "
                "in the list, a blank after a comma included, clears every restriction."),
        setting("RestrictTunnelProtocols", LocalPolicySettingKind::TUNNEL_PROTOCOL)
            .reads("RestrictTunnelProtocols")
            .installer("rtp", {"false", "TLS", "IPSec"})
            .describe("Restricts the client to one tunnel protocol; the client applies only the "
                      "texts false, "
                      "tls and ipsec."),
        setting("ExcludeFirefoxNSSCertStore", LocalPolicySettingKind::CERT_STORE_EXCLUSION)
            .excludes(LocalQNPolicyInfo::kFirefoxNSSCertStoreMask)
            .reads("ExcludeFirefoxNSSCertStores", &LocalQNPolicyInfo::ExcludeFirefoxNSSCertStores)
            .installer("efn", {"false", "true"})
            .describe("Excludes the Firefox NSS group of certificate stores."),
        setting("ExcludePemFileCertStore", LocalPolicySettingKind::CERT_STORE_EXCLUSION)
            .excludes(LocalQNPolicyInfo::kPemFileCertStoreMask)
            .reads("ExcludePemFileCertStores", &LocalQNPolicyInfo::ExcludePemFileCertStores)
            .installer("epf", {"false", "true"})
            .describe("Excludes the PEM-file group of certificate stores."),
        setting("ExcludeMacNativeCertStore", LocalPolicySettingKind::CERT_STORE_EXCLUSION)
            .excludes(LocalQNPolicyInfo::kMacNativeCertStoreMask)
            .reads("ExcludeMacNativeCertStores", &LocalQNPolicyInfo::ExcludeMacNativeCertStores)
            .installer("emn", {"false", "true"})
            .describe("Excludes the Mac native group of certificate stores."),
        setting("ExcludeWinNativeCertStore", LocalPolicySettingKind::CERT_STORE_EXCLUSION)
            .excludes(LocalQNPolicyInfo::kWinNativeCertStoreMask)
            .reads("ExcludeWinNativeCertStores", &LocalQNPolicyInfo::ExcludeWinNativeCertStores)
            .installer("ewn", {"false", "true"})
            .describe("Excludes the Windows native group of certificate stores."),
        setting("RestrictServerCertStore", LocalPolicySettingKind::FLAG)
            .reads("IsRestrictServerCertStore", &LocalQNPolicyInfo::IsRestrictServerCertStore)
            .sets(&LocalQNPolicyInfo::SetRestrictServerCertStore)
            .installer("rsc", {"false", "true"})
            .describe(
                "Restricts the server certificate store. It also makes certificate trust strict, "
                "whatever StrictCertificateTrust says."),
        setting("AllowSoftwareUpdatesFromAnyServer", LocalPolicySettingKind::UPDATE_PERMISSION)
            .reads("IsSoftwareUpdateAllowed", &LocalQNPolicyInfo::IsSoftwareUpdateAllowed)
            .sets(&LocalQNPolicyInfo::SetSoftwareUpdateLock)
            .installer("upsu", {"true", "false"})
            .describe("Allows software updates from any server (true) or not (false)."),
        setting("AllowComplianceModuleUpdatesFromAnyServer",
                LocalPolicySettingKind::UPDATE_PERMISSION)
            .reads("IsComplianceModuleSoftwareUpdateAllowed",
                   &LocalQNPolicyInfo::IsComplianceModuleSoftwareUpdateAllowed)
            .sets(&LocalQNPolicyInfo::SetComplianceModuleSoftwareUpdateLock)
            .installer("upcu", {"true", "false"})
            .describe("Allows compliance module updates from any server (true) or not (false)."),
        setting("AllowVPNProfileUpdatesFromAnyServer", LocalPolicySettingKind::UPDATE_PERMISSION)
            .reads("IsVPNProfileUpdateAllowed", &LocalQNPolicyInfo::IsVPNProfileUpdateAllowed)
            .sets(&LocalQNPolicyInfo::SetVPNProfileUpdateLock)
            .installer("upvp", {"true", "false"})
            .describe("Allows VPN profile updates from any server (true) or not (false)."),
        setting("AllowManagementVPNProfileUpdatesFromAnyServer",
                LocalPolicySettingKind::UPDATE_PERMISSION)
            .reads("IsMgmtVPNProfileUpdateAllowed",
                   &LocalQNPolicyInfo::IsMgmtVPNProfileUpdateAllowed)
            .sets(&LocalQNPolicyInfo::SetMgmtVPNProfileUpdateLock)
            .installer("upmv", {"true", "false"})
            .describe(
                "Allows management VPN profile updates from any server (true) or not (false)."),
        setting("AllowPlexoProfileUpdatesFromAnyServer", LocalPolicySettingKind::UPDATE_PERMISSION)
            .reads("IsPlexoProfileUpdateAllowed", &LocalQNPolicyInfo::IsPlexoProfileUpdateAllowed)
            .sets(&LocalQNPolicyInfo::SetPlexoProfileUpdateLock)
            .installer("uppp", {"true", "false"})
            .describe("Allows Plexo profile updates from any server (true) or not (false)."),
        setting("AllowServiceProfileUpdatesFromAnyServer",
                LocalPolicySettingKind::UPDATE_PERMISSION)
            .reads("IsServiceProfileUpdateAllowed",
                   &LocalQNPolicyInfo::IsServiceProfileUpdateAllowed)
            .sets(&LocalQNPolicyInfo::SetServiceProfileUpdateLock)
            .installer("upsp", {"true", "false"})
            .describe("Allows service profile updates from any server (true) or not (false)."),
        setting("AllowScriptUpdatesFromAnyServer", LocalPolicySettingKind::UPDATE_PERMISSION)
            .reads("IsScriptUpdateAllowed", &LocalQNPolicyInfo::IsScriptUpdateAllowed)
            .sets(&LocalQNPolicyInfo::SetScriptUpdateLock)
            .installer("upscr", {"true", "false"})
            .describe("Allows script updates from any server (true) or not (false)."),
        setting("AllowHelpUpdatesFromAnyServer", LocalPolicySettingKind::UPDATE_PERMISSION)
            .reads("IsHelpUpdateAllowed", &LocalQNPolicyInfo::IsHelpUpdateAllowed)
            .sets(&LocalQNPolicyInfo::SetHelpUpdateLock)
            .installer("uphlp", {"true", "false"})
            .describe("Allows help updates from any server (true) or not (false)."),
        setting("AllowResourceUpdatesFromAnyServer", LocalPolicySettingKind::UPDATE_PERMISSION)
            .reads("IsResourceUpdateAllowed", &LocalQNPolicyInfo::IsResourceUpdateAllowed)
            .sets(&LocalQNPolicyInfo::SetResourceUpdateLock)
            .installer("upres", {"true", "false"})
            .describe("Allows resource updates from any server (true) or not (false)."),
        setting("AllowLocalizationUpdatesFromAnyServer", LocalPolicySettingKind::UPDATE_PERMISSION)
            .reads("IsLocalizationUpdateAllowed", &LocalQNPolicyInfo::IsLocalizationUpdateAllowed)
            .sets(&LocalQNPolicyInfo::SetLocalizationUpdateLock)
            .installer("uploc", {"true", "false"})
            .describe("Allows localization updates from any server (true) or not (false)."),
        setting(qnpolicy::kAuthorizedServerListElement, LocalPolicySettingKind::SERVER_LIST)
            .reads("GetAuthorizedServerList")
            .installer("upal", {})
            .describe(
                "Lists the authorized servers, one ServerName element each; the installer value "
                "separates the names with commas or semicolons."),
        setting(qnpolicy::kServerNameElement, LocalPolicySettingKind::SERVER_NAME)
            .reads("GetAuthorizedServerList")
            .describe("Names one authorized server, exactly as written, blanks included."),
    };
}

// Element name to row, in constant time: an open-addressing table of a fixed size, far larger
// than the catalogue, whose slot is a cheap mix of the name's length and three of its
// characters; a full comparison tells the rows of one slot apart. The reader looks up every
// element of a document, so this is on the path of each server name. The names are distinct,
// so the exact lookup finds the one row the reader acts on. Rows are the catalogue's own,
// which lives as long as the process.
class ElementIndex {
  public:
    explicit ElementIndex(const std::vector<LocalPolicySettingInfo>& catalogue) {
        for (const LocalPolicySettingInfo& row : catalogue) {
            size_t slot = slotOf(row.element);
            while (m_slots[slot] != nullptr) {
                slot = (slot + 1) % kSlots;
            }
            m_slots[slot] = &row;
        }
    }

    const LocalPolicySettingInfo* find(std::string_view element) const {
        if (element.empty()) {
            return nullptr;
        }
        // Ends at an empty slot: the table is never more than a quarter full.
        for (size_t slot = slotOf(element); m_slots[slot] != nullptr; slot = (slot + 1) % kSlots) {
            if (m_slots[slot]->element == element) {
                return m_slots[slot];
            }
        }
        return nullptr;
    }

  private:
    static constexpr size_t kSlots = 128;  // a power of two, over four times the rows

    static size_t slotOf(std::string_view element) {
        const size_t size = element.size();
        const auto at = [element](size_t i) {
            return static_cast<size_t>(static_cast<unsigned char>(element[i]));
        };
        return (size * 31 + at(0) * 7 + at(size - 1) * 3 + at(size / 2)) % kSlots;
    }

    std::array<const LocalPolicySettingInfo*, kSlots> m_slots{};
};

}  // namespace

const std::vector<LocalPolicySettingInfo>& LocalPolicySettings() {
    static const std::vector<LocalPolicySettingInfo> catalogue = buildCatalogue();
    return catalogue;
}

std::string LocalPolicyDefaultText(const LocalPolicySettingInfo& row) {
    return qnpolicy::KindOf(row.kind).documentText(row, LocalQNPolicyInfo());
}

const LocalPolicySettingInfo* FindLocalPolicySetting(std::string_view element) {
    static const ElementIndex index(LocalPolicySettings());
    return index.find(element);
}

const LocalPolicySettingInfo* FindLocalPolicySettingOfKind(LocalPolicySettingKind kind) {
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        if (row.kind == kind) {
            return &row;
        }
    }
    return nullptr;
}

const std::vector<std::string>& LocalPolicyCachingOptionTexts() {
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> ordered;
        for (int option = RESTRICT_PREF_CACHING_FALSE; option < RESTRICT_PREF_CACHING_OPTION_COUNT;
             ++option) {
            ordered.emplace_back(
                qnpolicy::CachingOptionText(static_cast<RestrictPrefCachingOption>(option)));
        }
        return ordered;
    }();
    return texts;
}

const std::vector<std::string>& LocalPolicyAppliedTunnelTexts() {
    // Indexed by RestrictTunnelProtocolOption.
    static const std::vector<std::string> texts = {"false", "tls", "ipsec"};
    return texts;
}

const std::string& LocalPolicyTunnelOptionText(RestrictTunnelProtocolOption option) {
    static const std::string unknown;
    const std::vector<std::string>& texts = LocalPolicyAppliedTunnelTexts();
    const auto index = static_cast<size_t>(option);
    return index < texts.size() ? texts[index] : unknown;
}
