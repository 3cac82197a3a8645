#include "LocalQNPolicyInfo.h"

#include "LocalQNPolicyOptionTexts.h"

const std::map<RestrictPrefCachingOption, std::string> sg_restrictPrefCachingOptionToStrMap = {
    {RESTRICT_PREF_CACHING_FALSE, "false"},
    {RESTRICT_PREF_CACHING_CREDENTIALS, "Credentials"},
    {RESTRICT_PREF_CACHING_THUMBPRINTS, "Thumbprints"},
    {RESTRICT_PREF_CACHING_CREDENTIALS_AND_THUMBPRINTS, "CredentialsAndThumbprints"},
    {RESTRICT_PREF_CACHING_AHS, "AutomaticServerSelection"},
    {RESTRICT_PREF_CACHING_ALL, "All"},
};

LocalQNPolicyInfo::LocalQNPolicyInfo() = default;

// The same as default construction followed by assignment: the copy's strings are its own.
LocalQNPolicyInfo::LocalQNPolicyInfo(const LocalQNPolicyInfo& other) {
    *this = other;
}

LocalQNPolicyInfo::~LocalQNPolicyInfo() = default;

// Field-for-field copy. The strings are rebuilt from their characters so that a copy never
// shares a buffer with its source, whatever the string implementation does.
LocalQNPolicyInfo& LocalQNPolicyInfo::operator=(const LocalQNPolicyInfo& other) {
    if (this == &other) {
        return *this;
    }
    m_qnversion.assign(other.m_qnversion.data(), other.m_qnversion.size());
    m_bFipsMode = other.m_bFipsMode;
    m_bBypassDownloader = other.m_bBypassDownloader;
    m_bBypassDefaultLocalization = other.m_bBypassDefaultLocalization;
    m_bRestrictScriptWebDeploy = other.m_bRestrictScriptWebDeploy;
    m_bRestrictHelpWebDeploy = other.m_bRestrictHelpWebDeploy;
    m_bRestrictResourceWebDeploy = other.m_bRestrictResourceWebDeploy;
    m_bRestrictLocalizationWebDeploy = other.m_bRestrictLocalizationWebDeploy;
    m_bRestrictWebLaunch = other.m_bRestrictWebLaunch;
    m_bStrictCertTrust = other.m_bStrictCertTrust;
    m_bEnableCRLCheck = other.m_bEnableCRLCheck;
    m_bOcspRevocation = other.m_bOcspRevocation;
    m_RestrictPrefCachingValues = other.m_RestrictPrefCachingValues;
    m_eRestrictTunnelProtocol = other.m_eRestrictTunnelProtocol;
    m_uiExcludeCertStore = other.m_uiExcludeCertStore;
    m_bIsRestrictServerCertStore = other.m_bIsRestrictServerCertStore;
    m_bIsSoftwareUpdateAllowed = other.m_bIsSoftwareUpdateAllowed;
    m_bIsComplianceModuleSoftwareUpdateAllowed = other.m_bIsComplianceModuleSoftwareUpdateAllowed;
    m_bIsVPNProfileUpdateAllowed = other.m_bIsVPNProfileUpdateAllowed;
    m_bIsMgmtVPNProfileUpdateAllowed = other.m_bIsMgmtVPNProfileUpdateAllowed;
    m_bIsPlexoProfileUpdateAllowed = other.m_bIsPlexoProfileUpdateAllowed;
    m_bIsServiceProfileUpdateAllowed = other.m_bIsServiceProfileUpdateAllowed;
    m_bIsScriptUpdateAllowed = other.m_bIsScriptUpdateAllowed;
    m_bIsHelpUpdateAllowed = other.m_bIsHelpUpdateAllowed;
    m_bIsResourceUpdateAllowed = other.m_bIsResourceUpdateAllowed;
    m_bIsLocalizationUpdateAllowed = other.m_bIsLocalizationUpdateAllowed;
    msl_AuthorizedServerList.clear();
    for (const std::string& serverName : other.msl_AuthorizedServerList) {
        msl_AuthorizedServerList.emplace_back(serverName.data(), serverName.size());
    }
    return *this;
}

// A new record holds the defaults; assigning it frees the server list and the version text.
void LocalQNPolicyInfo::Reset() {
    LocalQNPolicyInfo::operator=(LocalQNPolicyInfo());
}

void LocalQNPolicyInfo::RestrictPrefCaching(RestrictPrefCachingOption option) {
    // An option outside the vector would index past its end; no reader produces one, and
    // ignoring it cannot weaken a restriction already recorded.
    if (option < RESTRICT_PREF_CACHING_FALSE || option >= RESTRICT_PREF_CACHING_OPTION_COUNT) {
        return;
    }
    if (option == RESTRICT_PREF_CACHING_FALSE) {
        m_RestrictPrefCachingValues.assign(m_RestrictPrefCachingValues.size(), false);
    }
    m_RestrictPrefCachingValues[static_cast<size_t>(option)] = true;
}

std::string LocalQNPolicyInfo::RestrictPrefCachingStr() const {
    std::string text;
    for (const auto& [option, optionText] : sg_restrictPrefCachingOptionToStrMap) {
        const auto index = static_cast<size_t>(option);
        if (index < m_RestrictPrefCachingValues.size() && m_RestrictPrefCachingValues[index]) {
            if (!text.empty()) {
                text += sg_restrictPrefCachingDelim;
            }
            text += optionText;
        }
    }
    return text;
}
