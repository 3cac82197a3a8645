// SPDX-License-Identifier: Apache-2.0
// The settings catalogue's table and its lookups.

#include "LocalPolicySettings.h"

#include <array>

#include "LocalQNPolicyOptionTexts.h"

namespace {

// One row per element, the 29 installer settings in the order the vocabulary defines them, then
// the server name. A description says what the setting is, and nothing the client is not known
// to do with it; the defaults are the record's own.
std::vector<LocalPolicySettingInfo> buildCatalogue() {
    return {
        {"FipsMode",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FIPS_MODE,
         0,
         &LocalQNPolicyInfo::UseFIPSMode,
         nullptr,
         "UseFIPSMode",
         "false",
         "fm",
         {"false", "true"},
         "Runs the client in FIPS mode. The first load that finds and parses the file fixes the "
         "mode, and every later load that finds and parses the file applies that mode again, even "
         "when the file now states another; a load that finds no file, or cannot parse it, turns "
         "FIPS mode off."},
        {"BypassDownloader",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FLAG,
         0,
         &LocalQNPolicyInfo::BypassDownloader,
         &LocalQNPolicyInfo::BypassDownloader,
         "BypassDownloader",
         "false",
         "bd",
         {"false", "true"},
         "Bypasses the client's downloader."},
        {"BypassDefaultLocalization",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FLAG,
         0,
         &LocalQNPolicyInfo::BypassDefaultLocalization,
         &LocalQNPolicyInfo::BypassDefaultLocalization,
         "BypassDefaultLocalization",
         "false",
         "bdl",
         {"false", "true"},
         "Bypasses the client's default localization."},
        {"RestrictScriptWebDeploy",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FLAG,
         0,
         &LocalQNPolicyInfo::RestrictScriptWebDeploy,
         &LocalQNPolicyInfo::RestrictScriptWebDeploy,
         "RestrictScriptWebDeploy",
         "false",
         "rswd",
         {"false", "true"},
         "Forbids the deployment of scripts from the web."},
        {"RestrictHelpWebDeploy",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FLAG,
         0,
         &LocalQNPolicyInfo::RestrictHelpWebDeploy,
         &LocalQNPolicyInfo::RestrictHelpWebDeploy,
         "RestrictHelpWebDeploy",
         "false",
         "rhwd",
         {"false", "true"},
         "Forbids the deployment of help from the web."},
        {"RestrictResourceWebDeploy",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FLAG,
         0,
         &LocalQNPolicyInfo::RestrictResourceWebDeploy,
         &LocalQNPolicyInfo::RestrictResourceWebDeploy,
         "RestrictResourceWebDeploy",
         "false",
         "rrwd",
         {"false", "true"},
         "Forbids the deployment of resources from the web."},
        {"RestrictLocalizationWebDeploy",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FLAG,
         0,
         &LocalQNPolicyInfo::RestrictLocalizationWebDeploy,
         &LocalQNPolicyInfo::RestrictLocalizationWebDeploy,
         "RestrictLocalizationWebDeploy",
         "false",
         "rlwd",
         {"false", "true"},
         "Forbids the deployment of localization from the web."},
        {"RestrictWebLaunch",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FLAG,
         0,
         &LocalQNPolicyInfo::RestrictWebLaunchMode,
         &LocalQNPolicyInfo::RestrictWebLaunchMode,
         "RestrictWebLaunchMode",
         "false",
         "rwl",
         {"false", "true"},
         "Restricts web launch."},
        {"StrictCertificateTrust",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FLAG,
         0,
         &LocalQNPolicyInfo::StrictCertTrustMode,
         &LocalQNPolicyInfo::StrictCertTrustMode,
         "StrictCertTrustMode",
         "false",
         "sct",
         {"false", "true"},
         "Makes certificate trust strict. A restricted server certificate store "
         "(RestrictServerCertStore true) makes it strict as well, whatever this element says."},
        {"EnableCRLCheck",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FLAG,
         0,
         &LocalQNPolicyInfo::IsCRLCheckEnabled,
         &LocalQNPolicyInfo::EnableCRLCheck,
         "IsCRLCheckEnabled",
         "false",
         "ecc",
         {"true", "false"},
         "Turns on certificate revocation list (CRL) checking."},
        {"OCSPRevocation",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FLAG,
         0,
         &LocalQNPolicyInfo::IsOCSPRevocationEnabled,
         &LocalQNPolicyInfo::EnableOCSPRevocation,
         "IsOCSPRevocationEnabled",
         "false",
         "orc",
         {"false", "true"},
         "Turns on OCSP revocation checking."},
        {"RestrictPreferenceCaching",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::CACHING_LIST,
         0,
         nullptr,
         nullptr,
         "RestrictPrefCaching",
         "false",
         "rpc",
         {},
         "Lists the preference values that may not be cached: Credentials, Thumbprints, "
         "CredentialsAndThumbprints, AutomaticServerSelection or All, separated by commas and "
         "nothing else. The client does not trim the options: false or an unknown option anywhere "
         "in the list, a blank after a comma included, clears every restriction."},
        {"RestrictTunnelProtocols",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::TUNNEL_PROTOCOL,
         0,
         nullptr,
         nullptr,
         "RestrictTunnelProtocols",
         "false",
         "rtp",
         {"false", "TLS", "IPSec"},
         "Restricts the client to one tunnel protocol; the client applies only the texts false, "
         "tls and ipsec."},
        {"ExcludeFirefoxNSSCertStore",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::CERT_STORE_EXCLUSION,
         LocalQNPolicyInfo::kFirefoxNSSCertStoreMask,
         &LocalQNPolicyInfo::ExcludeFirefoxNSSCertStores,
         nullptr,
         "ExcludeFirefoxNSSCertStores",
         "false",
         "efn",
         {"false", "true"},
         "Excludes the Firefox NSS group of certificate stores."},
        {"ExcludePemFileCertStore",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::CERT_STORE_EXCLUSION,
         LocalQNPolicyInfo::kPemFileCertStoreMask,
         &LocalQNPolicyInfo::ExcludePemFileCertStores,
         nullptr,
         "ExcludePemFileCertStores",
         "false",
         "epf",
         {"false", "true"},
         "Excludes the PEM-file group of certificate stores."},
        {"ExcludeMacNativeCertStore",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::CERT_STORE_EXCLUSION,
         LocalQNPolicyInfo::kMacNativeCertStoreMask,
         &LocalQNPolicyInfo::ExcludeMacNativeCertStores,
         nullptr,
         "ExcludeMacNativeCertStores",
         "false",
         "emn",
         {"false", "true"},
         "Excludes the Mac native group of certificate stores."},
        {"ExcludeWinNativeCertStore",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::CERT_STORE_EXCLUSION,
         LocalQNPolicyInfo::kWinNativeCertStoreMask,
         &LocalQNPolicyInfo::ExcludeWinNativeCertStores,
         nullptr,
         "ExcludeWinNativeCertStores",
         "false",
         "ewn",
         {"false", "true"},
         "Excludes the Windows native group of certificate stores."},
        {"RestrictServerCertStore",
         LocalPolicySection::ROOT,
         LocalPolicySettingKind::FLAG,
         0,
         &LocalQNPolicyInfo::IsRestrictServerCertStore,
         &LocalQNPolicyInfo::SetRestrictServerCertStore,
         "IsRestrictServerCertStore",
         "false",
         "rsc",
         {"false", "true"},
         "Restricts the server certificate store. It also makes certificate trust strict, "
         "whatever StrictCertificateTrust says."},
        {"AllowSoftwareUpdatesFromAnyServer",
         LocalPolicySection::UPDATE_POLICY,
         LocalPolicySettingKind::UPDATE_PERMISSION,
         0,
         &LocalQNPolicyInfo::IsSoftwareUpdateAllowed,
         &LocalQNPolicyInfo::SetSoftwareUpdateLock,
         "IsSoftwareUpdateAllowed",
         "true",
         "upsu",
         {"true", "false"},
         "Allows software updates from any server (true) or not (false)."},
        {"AllowComplianceModuleUpdatesFromAnyServer",
         LocalPolicySection::UPDATE_POLICY,
         LocalPolicySettingKind::UPDATE_PERMISSION,
         0,
         &LocalQNPolicyInfo::IsComplianceModuleSoftwareUpdateAllowed,
         &LocalQNPolicyInfo::SetComplianceModuleSoftwareUpdateLock,
         "IsComplianceModuleSoftwareUpdateAllowed",
         "true",
         "upcu",
         {"true", "false"},
         "Allows compliance module updates from any server (true) or not (false)."},
        {"AllowVPNProfileUpdatesFromAnyServer",
         LocalPolicySection::UPDATE_POLICY,
         LocalPolicySettingKind::UPDATE_PERMISSION,
         0,
         &LocalQNPolicyInfo::IsVPNProfileUpdateAllowed,
         &LocalQNPolicyInfo::SetVPNProfileUpdateLock,
         "IsVPNProfileUpdateAllowed",
         "true",
         "upvp",
         {"true", "false"},
         "Allows VPN profile updates from any server (true) or not (false)."},
        {"AllowManagementVPNProfileUpdatesFromAnyServer",
         LocalPolicySection::UPDATE_POLICY,
         LocalPolicySettingKind::UPDATE_PERMISSION,
         0,
         &LocalQNPolicyInfo::IsMgmtVPNProfileUpdateAllowed,
         &LocalQNPolicyInfo::SetMgmtVPNProfileUpdateLock,
         "IsMgmtVPNProfileUpdateAllowed",
         "true",
         "upmv",
         {"true", "false"},
         "Allows management VPN profile updates from any server (true) or not (false)."},
        {"AllowPlexoProfileUpdatesFromAnyServer",
         LocalPolicySection::UPDATE_POLICY,
         LocalPolicySettingKind::UPDATE_PERMISSION,
         0,
         &LocalQNPolicyInfo::IsPlexoProfileUpdateAllowed,
         &LocalQNPolicyInfo::SetPlexoProfileUpdateLock,
         "IsPlexoProfileUpdateAllowed",
         "true",
         "uppp",
         {"true", "false"},
         "Allows Plexo profile updates from any server (true) or not (false)."},
        {"AllowServiceProfileUpdatesFromAnyServer",
         LocalPolicySection::UPDATE_POLICY,
         LocalPolicySettingKind::UPDATE_PERMISSION,
         0,
         &LocalQNPolicyInfo::IsServiceProfileUpdateAllowed,
         &LocalQNPolicyInfo::SetServiceProfileUpdateLock,
         "IsServiceProfileUpdateAllowed",
         "true",
         "upsp",
         {"true", "false"},
         "Allows service profile updates from any server (true) or not (false)."},
        {"AllowScriptUpdatesFromAnyServer",
         LocalPolicySection::UPDATE_POLICY,
         LocalPolicySettingKind::UPDATE_PERMISSION,
         0,
         &LocalQNPolicyInfo::IsScriptUpdateAllowed,
         &LocalQNPolicyInfo::SetScriptUpdateLock,
         "IsScriptUpdateAllowed",
         "true",
         "upscr",
         {"true", "false"},
         "Allows script updates from any server (true) or not (false)."},
        {"AllowHelpUpdatesFromAnyServer",
         LocalPolicySection::UPDATE_POLICY,
         LocalPolicySettingKind::UPDATE_PERMISSION,
         0,
         &LocalQNPolicyInfo::IsHelpUpdateAllowed,
         &LocalQNPolicyInfo::SetHelpUpdateLock,
         "IsHelpUpdateAllowed",
         "true",
         "uphlp",
         {"true", "false"},
         "Allows help updates from any server (true) or not (false)."},
        {"AllowResourceUpdatesFromAnyServer",
         LocalPolicySection::UPDATE_POLICY,
         LocalPolicySettingKind::UPDATE_PERMISSION,
         0,
         &LocalQNPolicyInfo::IsResourceUpdateAllowed,
         &LocalQNPolicyInfo::SetResourceUpdateLock,
         "IsResourceUpdateAllowed",
         "true",
         "upres",
         {"true", "false"},
         "Allows resource updates from any server (true) or not (false)."},
        {"AllowLocalizationUpdatesFromAnyServer",
         LocalPolicySection::UPDATE_POLICY,
         LocalPolicySettingKind::UPDATE_PERMISSION,
         0,
         &LocalQNPolicyInfo::IsLocalizationUpdateAllowed,
         &LocalQNPolicyInfo::SetLocalizationUpdateLock,
         "IsLocalizationUpdateAllowed",
         "true",
         "uploc",
         {"true", "false"},
         "Allows localization updates from any server (true) or not (false)."},
        {"AuthorizedServerList",
         LocalPolicySection::UPDATE_POLICY,
         LocalPolicySettingKind::SERVER_LIST,
         0,
         nullptr,
         nullptr,
         "GetAuthorizedServerList",
         "",
         "upal",
         {},
         "Lists the authorized servers, one ServerName element each; the installer value "
         "separates the names with commas or semicolons."},
        {"ServerName",
         LocalPolicySection::AUTHORIZED_SERVER_LIST,
         LocalPolicySettingKind::SERVER_NAME,
         0,
         nullptr,
         nullptr,
         "GetAuthorizedServerList",
         "",
         "",
         {},
         "Names one authorized server, exactly as written, blanks included."},
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
        ordered.reserve(sg_restrictPrefCachingOptionToStrMap.size());
        for (const auto& optionText : sg_restrictPrefCachingOptionToStrMap) {
            ordered.push_back(optionText.second);
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
