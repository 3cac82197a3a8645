// The settings catalogue's table and its lookups.

#include "LocalPolicySettings.h"

#include <array>

#include "LocalQNPolicyOptionTexts.h"

namespace {

// One row per element, the 29 installer settings in vocabulary order, then the server name.
// Descriptions say what the client does when the setting is given; the defaults are the
// record's own.
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
         "Runs the client in FIPS mode; the mode of the first successful load stays in force until "
         "the client restarts."},
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
         "Keeps the client from running its downloader."},
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
         "Keeps the client from loading its default localization."},
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
         "Refuses scripts deployed from the web."},
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
         "Refuses help files deployed from the web."},
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
         "Refuses resource files deployed from the web."},
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
         "Refuses localization files deployed from the web."},
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
         "Refuses to start the client through a web launch."},
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
         "Refuses a server certificate that cannot be verified instead of asking the user whether "
         "to trust it."},
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
         "Checks every server certificate against its certificate revocation list."},
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
         "Checks the revocation of every server certificate with OCSP."},
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
         "Lists the preference values the client must not cache, separated by commas: Credentials, "
         "Thumbprints, CredentialsAndThumbprints, AutomaticServerSelection, All, or false for "
         "none."},
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
         "Excludes the Firefox NSS certificate stores from certificate lookups."},
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
         "Excludes the PEM-file certificate stores from certificate lookups."},
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
         "Excludes the Mac native certificate stores from certificate lookups."},
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
         "Excludes the Windows native certificate stores from certificate lookups."},
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
         "Refuses server certificates that are not in the server certificate store, which also "
         "makes certificate trust strict."},
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
         "Accepts client software updates from any server; false accepts them only from the "
         "authorized servers."},
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
         "Accepts compliance module updates from any server; false accepts them only from the "
         "authorized servers."},
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
         "Accepts VPN profile updates from any server; false accepts them only from the authorized "
         "servers."},
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
         "Accepts management VPN profile updates from any server; false accepts them only from the "
         "authorized servers."},
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
         "Accepts Plexo profile updates from any server; false accepts them only from the "
         "authorized servers."},
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
         "Accepts service profile updates from any server; false accepts them only from the "
         "authorized servers."},
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
         "Accepts script updates from any server; false accepts them only from the authorized "
         "servers."},
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
         "Accepts help updates from any server; false accepts them only from the authorized "
         "servers."},
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
         "Accepts resource updates from any server; false accepts them only from the authorized "
         "servers."},
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
         "Accepts localization updates from any server; false accepts them only from the "
         "authorized servers."},
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
         "Lists the servers updates may come from when an update kind is not allowed from any "
         "server; the installer value separates names with commas or semicolons."},
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
