// qnpolicy show: the effective policy as the client sees it after loading the file.

#include <cstdio>
#include <iomanip>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "ExitCodes.h"
#include "ToolSession.h"

namespace qnpolicy::tool {

namespace {

using Json = nlohmann::ordered_json;

struct FlagRow {
    const char* name;  // the element name administrators know from the file
    bool (LocalQNPolicyInfo::*getter)() const;
};

// Every boolean getter of the record, named by its element, in a fixed order.
const FlagRow kSettings[] = {
    {"FipsMode", &LocalQNPolicyInfo::UseFIPSMode},
    {"BypassDownloader", &LocalQNPolicyInfo::BypassDownloader},
    {"BypassDefaultLocalization", &LocalQNPolicyInfo::BypassDefaultLocalization},
    {"RestrictScriptWebDeploy", &LocalQNPolicyInfo::RestrictScriptWebDeploy},
    {"RestrictHelpWebDeploy", &LocalQNPolicyInfo::RestrictHelpWebDeploy},
    {"RestrictResourceWebDeploy", &LocalQNPolicyInfo::RestrictResourceWebDeploy},
    {"RestrictLocalizationWebDeploy", &LocalQNPolicyInfo::RestrictLocalizationWebDeploy},
    {"RestrictWebLaunch", &LocalQNPolicyInfo::RestrictWebLaunchMode},
    {"StrictCertificateTrust", &LocalQNPolicyInfo::StrictCertTrustMode},
    {"EnableCRLCheck", &LocalQNPolicyInfo::IsCRLCheckEnabled},
    {"OCSPRevocation", &LocalQNPolicyInfo::IsOCSPRevocationEnabled},
    {"RestrictServerCertStore", &LocalQNPolicyInfo::IsRestrictServerCertStore},
};

const FlagRow kExclusions[] = {
    {"ExcludeWinNativeCertStore", &LocalQNPolicyInfo::ExcludeWinNativeCertStores},
    {"ExcludeMacNativeCertStore", &LocalQNPolicyInfo::ExcludeMacNativeCertStores},
    {"ExcludeFirefoxNSSCertStore", &LocalQNPolicyInfo::ExcludeFirefoxNSSCertStores},
    {"ExcludePemFileCertStore", &LocalQNPolicyInfo::ExcludePemFileCertStores},
};

const FlagRow kUpdatePermissions[] = {
    {"AllowSoftwareUpdatesFromAnyServer", &LocalQNPolicyInfo::IsSoftwareUpdateAllowed},
    {"AllowComplianceModuleUpdatesFromAnyServer",
     &LocalQNPolicyInfo::IsComplianceModuleSoftwareUpdateAllowed},
    {"AllowVPNProfileUpdatesFromAnyServer", &LocalQNPolicyInfo::IsVPNProfileUpdateAllowed},
    {"AllowManagementVPNProfileUpdatesFromAnyServer",
     &LocalQNPolicyInfo::IsMgmtVPNProfileUpdateAllowed},
    {"AllowPlexoProfileUpdatesFromAnyServer", &LocalQNPolicyInfo::IsPlexoProfileUpdateAllowed},
    {"AllowServiceProfileUpdatesFromAnyServer", &LocalQNPolicyInfo::IsServiceProfileUpdateAllowed},
    {"AllowScriptUpdatesFromAnyServer", &LocalQNPolicyInfo::IsScriptUpdateAllowed},
    {"AllowHelpUpdatesFromAnyServer", &LocalQNPolicyInfo::IsHelpUpdateAllowed},
    {"AllowResourceUpdatesFromAnyServer", &LocalQNPolicyInfo::IsResourceUpdateAllowed},
    {"AllowLocalizationUpdatesFromAnyServer", &LocalQNPolicyInfo::IsLocalizationUpdateAllowed},
};

constexpr int kNameWidth = 52;
constexpr char kCachingElement[] = "RestrictPreferenceCaching";
constexpr char kTunnelElement[] = "RestrictTunnelProtocols";
constexpr char kServerListElement[] = "AuthorizedServerList";

// The tunnel option in the spelling the reader accepts for it.
std::string tunnelText(RestrictTunnelProtocolOption eOption) {
    switch (eOption) {
        case RESTRICT_TUNNEL_PROTOCOL_FALSE:
            return "false";
        case RESTRICT_TUNNEL_PROTOCOL_TLS:
            return "tls";
        case RESTRICT_TUNNEL_PROTOCOL_IPSEC:
            return "ipsec";
    }
    return "unknown (" + std::to_string(static_cast<int>(eOption)) + ")";
}

std::string hexMask(uint32_t mask) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned int>(mask));
    return text;
}

const char* boolText(bool b) {
    return b ? "true" : "false";
}

Json toJson(const std::string& path, bool bExists, XmlLocalQNPolMgr& manager) {
    const LocalQNPolicyInfo info = manager.GetLocalPolicyInfo();
    Json settings = Json::object();
    for (const FlagRow& row : kSettings) {
        settings[row.name] = (info.*row.getter)();
    }
    settings[kCachingElement] = info.RestrictPrefCachingStr();
    settings[kTunnelElement] = tunnelText(info.RestrictTunnelProtocols());
    for (const FlagRow& row : kExclusions) {
        settings[row.name] = (info.*row.getter)();
    }
    for (const FlagRow& row : kUpdatePermissions) {
        settings[row.name] = (info.*row.getter)();
    }
    Json servers = Json::array();
    for (const std::string& server : info.GetAuthorizedServerList()) {
        servers.push_back(server);
    }
    settings[kServerListElement] = servers;

    Json document = Json::object();
    document["policyFile"] = path;
    document["exists"] = bExists;
    document["version"] = info.GetQNVersion().empty() ? Json(nullptr) : Json(info.GetQNVersion());
    document["fipsModeModifiedOnDisk"] = manager.FipsModeModifiedOnDisk();
    document["excludeCertStoreMask"] = hexMask(info.ExcludeCertStores());
    document["settings"] = settings;
    return document;
}

// One "name value" line, the values of all levels aligned in one column.
void printLine(std::ostream& out, const std::string& name, const std::string& value,
               int level = 1) {
    const int indent = 2 * level;
    out << std::string(static_cast<size_t>(indent), ' ') << std::left
        << std::setw(kNameWidth - indent) << name << value << '\n';
}

void printFlags(std::ostream& out, const LocalQNPolicyInfo& info, const FlagRow* first,
                const FlagRow* last, int level = 1) {
    for (const FlagRow* row = first; row != last; ++row) {
        printLine(out, row->name, boolText((info.*row->getter)()), level);
    }
}

void printText(std::ostream& out, const std::string& path, bool bExists,
               XmlLocalQNPolMgr& manager) {
    const LocalQNPolicyInfo info = manager.GetLocalPolicyInfo();
    out << "Policy file: " << path << (bExists ? " (present)" : " (absent: defaults apply)")
        << '\n';
    out << "Version:     " << (info.GetQNVersion().empty() ? "(none)" : info.GetQNVersion())
        << '\n';
    out << "Effective policy:\n";
    printFlags(out, info, std::begin(kSettings), std::end(kSettings));
    printLine(out, "FipsModeModifiedOnDisk", boolText(manager.FipsModeModifiedOnDisk()));
    printLine(out, kCachingElement, info.RestrictPrefCachingStr());
    printLine(out, kTunnelElement, tunnelText(info.RestrictTunnelProtocols()));
    printFlags(out, info, std::begin(kExclusions), std::end(kExclusions));
    printLine(out, "ExcludeCertStoreMask", hexMask(info.ExcludeCertStores()));
    out << "  UpdatePolicy:\n";
    printFlags(out, info, std::begin(kUpdatePermissions), std::end(kUpdatePermissions), 2);
    const std::list<std::string>& servers = info.GetAuthorizedServerList();
    printLine(out, kServerListElement,
              servers.empty() ? "(none)" : std::to_string(servers.size()) + " server(s)", 2);
    // Quoted, since a server name is kept exactly as written, blanks included.
    for (const std::string& server : servers) {
        out << "      \"" << server << "\"\n";
    }
}

}  // namespace

int RunShow(const std::string& installDir, bool bJson, std::ostream& out, std::ostream& err) {
    CToolSession session;
    if (session.Open(installDir) != XMLLOCALQNPOLMGR_SUCCESS) {
        err << "qnpolicy show: cannot set up the policy module\n";
        return kExitFailure;
    }
    XmlLocalQNPolMgr& manager = session.Manager();
    const std::string path = session.PolicyPath();
    const bool bExists = manager.LocalPolicyFileExists();
    const STATUSCODE status = manager.LoadLocalQuillnetPolicy();
    if (status != XMLLOCALQNPOLMGR_SUCCESS) {
        err << "qnpolicy show: cannot load " << path << ": status "
            << hexMask(static_cast<uint32_t>(status))
            << " (see the log lines above; `qnpolicy check` shows where the file goes wrong)\n";
        return kExitFailure;
    }
    if (bJson) {
        out << toJson(path, bExists, manager).dump(2, ' ', false, Json::error_handler_t::replace)
            << '\n';
    } else {
        printText(out, path, bExists, manager);
    }
    return kExitSuccess;
}

}  // namespace qnpolicy::tool
