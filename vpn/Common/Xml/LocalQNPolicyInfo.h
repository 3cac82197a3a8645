// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_LOCALQNPOLICYINFO_H
#define QUILLNET_LOCALQNPOLICYINFO_H

#include <cstdint>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "QuillnetExport.h"

// Preference-caching options; several can be set at once (see LocalQNPolicyInfo).
enum RestrictPrefCachingOption : int32_t {
    RESTRICT_PREF_CACHING_FALSE = 0,
    RESTRICT_PREF_CACHING_CREDENTIALS = 1,
    RESTRICT_PREF_CACHING_THUMBPRINTS = 2,
    RESTRICT_PREF_CACHING_CREDENTIALS_AND_THUMBPRINTS = 3,
    RESTRICT_PREF_CACHING_AHS = 4,
    RESTRICT_PREF_CACHING_ALL = 5,
    RESTRICT_PREF_CACHING_OPTION_COUNT = 6,  // the number of options, not an option
};

// The one tunnel protocol a client may be restricted to.
enum RestrictTunnelProtocolOption : int32_t {
    RESTRICT_TUNNEL_PROTOCOL_FALSE = 0,
    RESTRICT_TUNNEL_PROTOCOL_TLS = 1,
    RESTRICT_TUNNEL_PROTOCOL_IPSEC = 2,
};

// LocalQNPolicyInfo is the in-memory local policy: one field per policy, plain getters for
// the client, setters for the document reader and the loader. A new or Reset() record
// restricts nothing and allows every kind of update from any server.
//
//   LocalQNPolicyInfo info = pManager->GetLocalPolicyInfo();   // an independent copy
//   if (info.UseFIPSMode()) { ... }
//
// Setters never validate: any version text, tunnel option or mask is stored, and empty or
// duplicate server names are appended. The exclude mask and the server list only grow
// through their setters; Reset() clears them. Not thread-safe: a record must not be changed
// by one thread while another reads it, but copies share nothing with their source.
class QUILLNET_API LocalQNPolicyInfo {
  public:
    // Certificate-store groups of the exclude mask; a group getter is true when any bit of
    // its mask is set. Other bits are stored and returned by ExcludeCertStores() only.
    static constexpr uint32_t kWinNativeCertStoreMask = 0xC3;
    static constexpr uint32_t kMacNativeCertStoreMask = 0x2104;
    static constexpr uint32_t kFirefoxNSSCertStoreMask = 0x8;
    static constexpr uint32_t kPemFileCertStoreMask = 0xC00;

    // Copies are field for field and share no buffer with their source: every string and
    // container is copied into storage of the copy's own (C++11 strings never share one).
    LocalQNPolicyInfo();
    LocalQNPolicyInfo(const LocalQNPolicyInfo& other);
    virtual ~LocalQNPolicyInfo();
    virtual LocalQNPolicyInfo& operator=(const LocalQNPolicyInfo& other);

    // Returns the record to its defaults.
    void Reset();

    std::string GetQNVersion() const { return m_qnversion; }
    void QNVersion(std::string version) { m_qnversion = std::move(version); }

    bool UseFIPSMode() const { return m_bFipsMode; }
    void UseFIPSMode(bool b) { m_bFipsMode = b; }
    bool BypassDownloader() const { return m_bBypassDownloader; }
    void BypassDownloader(bool b) { m_bBypassDownloader = b; }
    bool BypassDefaultLocalization() const { return m_bBypassDefaultLocalization; }
    void BypassDefaultLocalization(bool b) { m_bBypassDefaultLocalization = b; }
    bool RestrictScriptWebDeploy() const { return m_bRestrictScriptWebDeploy; }
    void RestrictScriptWebDeploy(bool b) { m_bRestrictScriptWebDeploy = b; }
    bool RestrictHelpWebDeploy() const { return m_bRestrictHelpWebDeploy; }
    void RestrictHelpWebDeploy(bool b) { m_bRestrictHelpWebDeploy = b; }
    bool RestrictResourceWebDeploy() const { return m_bRestrictResourceWebDeploy; }
    void RestrictResourceWebDeploy(bool b) { m_bRestrictResourceWebDeploy = b; }
    bool RestrictLocalizationWebDeploy() const { return m_bRestrictLocalizationWebDeploy; }
    void RestrictLocalizationWebDeploy(bool b) { m_bRestrictLocalizationWebDeploy = b; }
    bool RestrictWebLaunchMode() const { return m_bRestrictWebLaunch; }
    void RestrictWebLaunchMode(bool b) { m_bRestrictWebLaunch = b; }

    // A restricted server certificate store always reads as strict certificate trust; the
    // setter stores the strict-trust flag alone.
    bool StrictCertTrustMode() const { return IsRestrictServerCertStore() || m_bStrictCertTrust; }
    void StrictCertTrustMode(bool b) { m_bStrictCertTrust = b; }

    bool IsCRLCheckEnabled() const { return m_bEnableCRLCheck; }
    void EnableCRLCheck(bool b) { m_bEnableCRLCheck = b; }
    bool IsOCSPRevocationEnabled() const { return m_bOcspRevocation; }
    void EnableOCSPRevocation(bool b) { m_bOcspRevocation = b; }

    // One entry per RestrictPrefCachingOption; entry RESTRICT_PREF_CACHING_FALSE is always
    // true. Each option owns only its own entry (ALL does not set entries 1 to 4).
    std::vector<bool> RestrictPrefCaching() const { return m_RestrictPrefCachingValues; }
    // RESTRICT_PREF_CACHING_FALSE clears every restriction; any other option adds its own.
    // A value outside 0 to 5 changes nothing.
    void RestrictPrefCaching(RestrictPrefCachingOption option);
    // The set options' texts in option order, joined by "," (always starting with "false").
    std::string RestrictPrefCachingStr() const;

    RestrictTunnelProtocolOption RestrictTunnelProtocols() const {
        return m_eRestrictTunnelProtocol;
    }
    void RestrictTunnelProtocols(RestrictTunnelProtocolOption option) {
        m_eRestrictTunnelProtocol = option;
    }

    uint32_t ExcludeCertStores() const { return m_uiExcludeCertStore; }
    // ORs mask into the exclude mask; never clears a bit.
    void ExcludeCertStores(uint32_t mask) { m_uiExcludeCertStore |= mask; }
    bool ExcludeFirefoxNSSCertStores() const { return excludes(kFirefoxNSSCertStoreMask); }
    bool ExcludePemFileCertStores() const { return excludes(kPemFileCertStoreMask); }
    bool ExcludeMacNativeCertStores() const { return excludes(kMacNativeCertStoreMask); }
    bool ExcludeWinNativeCertStores() const { return excludes(kWinNativeCertStoreMask); }

    bool IsRestrictServerCertStore() const { return m_bIsRestrictServerCertStore; }
    void SetRestrictServerCertStore(bool b) { m_bIsRestrictServerCertStore = b; }

    // The Set...UpdateLock setters take the allowed value despite their names: true means
    // updates of that kind are accepted from any server.
    bool IsSoftwareUpdateAllowed() const { return m_bIsSoftwareUpdateAllowed; }
    void SetSoftwareUpdateLock(bool b) { m_bIsSoftwareUpdateAllowed = b; }
    bool IsComplianceModuleSoftwareUpdateAllowed() const {
        return m_bIsComplianceModuleSoftwareUpdateAllowed;
    }
    void SetComplianceModuleSoftwareUpdateLock(bool b) {
        m_bIsComplianceModuleSoftwareUpdateAllowed = b;
    }
    bool IsVPNProfileUpdateAllowed() const { return m_bIsVPNProfileUpdateAllowed; }
    void SetVPNProfileUpdateLock(bool b) { m_bIsVPNProfileUpdateAllowed = b; }
    bool IsMgmtVPNProfileUpdateAllowed() const { return m_bIsMgmtVPNProfileUpdateAllowed; }
    void SetMgmtVPNProfileUpdateLock(bool b) { m_bIsMgmtVPNProfileUpdateAllowed = b; }
    bool IsPlexoProfileUpdateAllowed() const { return m_bIsPlexoProfileUpdateAllowed; }
    void SetPlexoProfileUpdateLock(bool b) { m_bIsPlexoProfileUpdateAllowed = b; }
    bool IsServiceProfileUpdateAllowed() const { return m_bIsServiceProfileUpdateAllowed; }
    void SetServiceProfileUpdateLock(bool b) { m_bIsServiceProfileUpdateAllowed = b; }
    bool IsScriptUpdateAllowed() const { return m_bIsScriptUpdateAllowed; }
    void SetScriptUpdateLock(bool b) { m_bIsScriptUpdateAllowed = b; }
    bool IsHelpUpdateAllowed() const { return m_bIsHelpUpdateAllowed; }
    void SetHelpUpdateLock(bool b) { m_bIsHelpUpdateAllowed = b; }
    bool IsResourceUpdateAllowed() const { return m_bIsResourceUpdateAllowed; }
    void SetResourceUpdateLock(bool b) { m_bIsResourceUpdateAllowed = b; }
    bool IsLocalizationUpdateAllowed() const { return m_bIsLocalizationUpdateAllowed; }
    void SetLocalizationUpdateLock(bool b) { m_bIsLocalizationUpdateAllowed = b; }

    // The list itself: it reflects later changes and lives as long as the record.
    const std::list<std::string>& GetAuthorizedServerList() const {
        return msl_AuthorizedServerList;
    }
    void AddToAuthorizedServerList(std::string serverName) {
        msl_AuthorizedServerList.push_back(std::move(serverName));
    }

  private:
    // The manager hands a loaded record's server list over for release (see
    // XmlLocalQNPolMgr::LoadLocalQuillnetPolicy).
    friend class XmlLocalQNPolMgr;

    bool excludes(uint32_t groupMask) const { return (m_uiExcludeCertStore & groupMask) != 0; }

    // Every entry false except RESTRICT_PREF_CACHING_FALSE: no caching restriction.
    static std::vector<bool> noCachingRestriction() {
        std::vector<bool> values(RESTRICT_PREF_CACHING_OPTION_COUNT, false);
        values[RESTRICT_PREF_CACHING_FALSE] = true;
        return values;
    }

    // The defaults restrict nothing and allow every kind of update from any server; they are
    // written here only: the constructors start from them and Reset() assigns a new record.
    std::string m_qnversion;
    bool m_bFipsMode = false;
    bool m_bBypassDownloader = false;
    bool m_bBypassDefaultLocalization = false;
    bool m_bRestrictScriptWebDeploy = false;
    bool m_bRestrictHelpWebDeploy = false;
    bool m_bRestrictResourceWebDeploy = false;
    bool m_bRestrictLocalizationWebDeploy = false;
    bool m_bRestrictWebLaunch = false;
    bool m_bStrictCertTrust = false;
    bool m_bEnableCRLCheck = false;
    bool m_bOcspRevocation = false;
    std::vector<bool> m_RestrictPrefCachingValues = noCachingRestriction();
    RestrictTunnelProtocolOption m_eRestrictTunnelProtocol = RESTRICT_TUNNEL_PROTOCOL_FALSE;
    uint32_t m_uiExcludeCertStore = 0;
    bool m_bIsRestrictServerCertStore = false;
    bool m_bIsSoftwareUpdateAllowed = true;
    bool m_bIsComplianceModuleSoftwareUpdateAllowed = true;
    bool m_bIsVPNProfileUpdateAllowed = true;
    bool m_bIsMgmtVPNProfileUpdateAllowed = true;
    bool m_bIsPlexoProfileUpdateAllowed = true;
    bool m_bIsServiceProfileUpdateAllowed = true;
    bool m_bIsScriptUpdateAllowed = true;
    bool m_bIsHelpUpdateAllowed = true;
    bool m_bIsResourceUpdateAllowed = true;
    bool m_bIsLocalizationUpdateAllowed = true;
    std::list<std::string> msl_AuthorizedServerList;
};

#endif  // QUILLNET_LOCALQNPOLICYINFO_H
