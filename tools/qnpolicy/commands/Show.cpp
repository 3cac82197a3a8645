// qnpolicy show: the effective policy as the client sees it after loading the file, every
// setting named by its element in catalogue order.

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iomanip>

#include "Commands.h"
#include "DeferredLog.h"
#include "ExitCodes.h"
#include "JsonWriter.h"
#include "LocalPolicySettings.h"
#include "ParseFailure.h"
#include "PrivateDirectory.h"
#include "TextFormat.h"
#include "ToolSession.h"
#include "XmlLocalQNPolMgrConstants.h"

namespace qnpolicy::tool {

namespace {

constexpr int kNameWidth = 52;

const char* boolText(bool b) {
    return b ? "true" : "false";
}

// The caching options in force, in option order ("false" always first).
std::vector<std::string> cachingTexts(const LocalQNPolicyInfo& info) {
    const std::vector<bool> values = info.RestrictPrefCaching();
    const std::vector<std::string>& texts = LocalPolicyCachingOptionTexts();
    std::vector<std::string> set;
    for (size_t i = 0; i < values.size() && i < texts.size(); ++i) {
        if (values[i]) {
            set.push_back(texts[i]);
        }
    }
    return set;
}

std::string tunnelText(const LocalQNPolicyInfo& info) {
    const std::string& text = LocalPolicyTunnelOptionText(info.RestrictTunnelProtocols());
    return text.empty() ? "unknown (" +
                              std::to_string(static_cast<int>(info.RestrictTunnelProtocols())) + ")"
                        : text;
}

// What show prints of a setting: an on/off value, a text, or a list.
bool isBoolean(const LocalPolicySettingInfo& row) {
    return row.getter != nullptr;
}

void writeJson(std::ostream& out, const std::string& path, bool bExists, XmlLocalQNPolMgr& manager,
               const LocalQNPolicyInfo& info) {
    CJsonWriter json(out);
    json.BeginObject().Key("formatVersion").Number(1).Key("loaded").Bool(true);
    json.Key("policyFile").String(path).Key("exists").Bool(bExists).Key("version");
    if (info.GetQNVersion().empty()) {
        json.Null();
    } else {
        json.String(info.GetQNVersion());
    }
    json.Key("fipsModeModifiedOnDisk").Bool(manager.FipsModeModifiedOnDisk());
    json.Key("excludeCertStoreMask").String(HexText(info.ExcludeCertStores()));
    json.Key("settings").BeginObject();
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        if (isBoolean(row)) {
            json.Key(row.element).Bool((info.*row.getter)());
            continue;
        }
        switch (row.kind) {
            case LocalPolicySettingKind::CACHING_LIST:
                json.Key(row.element).BeginArray();
                for (const std::string& text : cachingTexts(info)) {
                    json.String(text);
                }
                json.EndArray();
                break;
            case LocalPolicySettingKind::TUNNEL_PROTOCOL:
                json.Key(row.element).String(tunnelText(info));
                break;
            case LocalPolicySettingKind::SERVER_LIST:
                json.Key(row.element).BeginArray();
                for (const std::string& server : info.GetAuthorizedServerList()) {
                    json.String(server);
                }
                json.EndArray();
                break;
            default:
                // The server names are the list's entries, not a setting of their own.
                break;
        }
    }
    json.EndObject().Key("descriptions").BeginObject();
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        json.Key(row.element).String(row.description);
    }
    json.EndObject().EndObject().Finish();
}

// One "name value" line, the values of all levels aligned in one column.
void printLine(std::ostream& out, const std::string& name, const std::string& value,
               int level = 1) {
    const int indent = 2 * level;
    out << std::string(static_cast<size_t>(indent), ' ') << std::left
        << std::setw(kNameWidth - indent) << name << value << '\n';
}

void printText(std::ostream& out, const std::string& path, bool bExists, XmlLocalQNPolMgr& manager,
               const LocalQNPolicyInfo& info) {
    out << "Policy file: " << path << (bExists ? " (present)" : " (absent: defaults apply)")
        << '\n';
    out << "Version:     " << (info.GetQNVersion().empty() ? "(none)" : info.GetQNVersion())
        << '\n';
    out << "FipsModeModifiedOnDisk: " << boolText(manager.FipsModeModifiedOnDisk()) << '\n';
    out << "Effective policy:\n";
    bool bInUpdateSection = false;
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        const bool bUpdate = row.section != LocalPolicySection::ROOT;
        if (bUpdate && !bInUpdateSection) {
            out << "  " << kUpdatePolicyElement << ":\n";
            bInUpdateSection = true;
        }
        const int level = bUpdate ? 2 : 1;
        if (isBoolean(row)) {
            printLine(out, row.element, boolText((info.*row.getter)()), level);
            continue;
        }
        switch (row.kind) {
            case LocalPolicySettingKind::CACHING_LIST: {
                std::string joined;
                for (const std::string& text : cachingTexts(info)) {
                    joined += (joined.empty() ? "" : ",") + text;
                }
                printLine(out, row.element, joined, level);
                break;
            }
            case LocalPolicySettingKind::TUNNEL_PROTOCOL:
                printLine(out, row.element, tunnelText(info), level);
                break;
            case LocalPolicySettingKind::SERVER_LIST: {
                const std::list<std::string>& servers = info.GetAuthorizedServerList();
                printLine(
                    out, row.element,
                    servers.empty() ? "(none)" : std::to_string(servers.size()) + " server(s)",
                    level);
                // Quoted, since a server name is kept exactly as written, blanks included.
                for (const std::string& server : servers) {
                    out << "      " << Quoted(server) << '\n';
                }
                break;
            }
            default:
                break;
        }
    }
    printLine(out, "ExcludeCertStoreMask", HexText(info.ExcludeCertStores()));
}

// Where the module is to look: the install directory, or a private directory holding a
// link named like the policy file to FILE. 0, or the exit status of the failure (reported).
int locate(const CommandArgs& args, CToolContext& context, CPrivateDirectory& scratch,
           std::string& rDirectory, std::string& rPath) {
    if (args.files.empty()) {
        rDirectory = context.Options().installDir;
        rPath = context.InstallPolicyPath();
        return context.RequireInstallDir();
    }
    rPath = args.files.front();
    struct stat status {};
    if (::stat(rPath.c_str(), &status) != 0) {
        const int error = errno;
        context.Error(Quoted(rPath) + ": " +
                      (error == ENOENT ? std::string("no such file") : std::strerror(error)));
        return kExitNoInput;
    }
    std::error_code error;
    const std::filesystem::path target = std::filesystem::absolute(rPath, error);
    if (error || !scratch.Create()) {
        context.Error("cannot prepare a private directory to read " + Quoted(rPath));
        return kExitInternal;
    }
    std::filesystem::create_symlink(target, scratch.Path() + kPolicyFileName, error);
    if (error) {
        context.Error("cannot link " + Quoted(rPath) + " into " + scratch.Path() + ": " +
                      error.message());
        return kExitInternal;
    }
    rDirectory = scratch.Path();
    return kExitSuccess;
}

}  // namespace

void AddShowOptions(CLI::App& command, CommandArgs& args) {
    command
        .add_option("FILE", args.files,
                    "A policy file elsewhere, read as the client would read it in the install "
                    "directory")
        ->type_name("FILE")
        ->expected(0, 1);
}

int RunShow(const CommandArgs& args, CToolContext& context) {
    CPrivateDirectory scratch;
    std::string directory;
    std::string path;
    if (const int status = locate(args, context, scratch, directory, path);
        status != kExitSuccess) {
        return status;
    }
    CToolSession session;
    if (session.Open(directory) != XMLLOCALQNPOLMGR_SUCCESS) {
        context.Error("cannot set up the policy module");
        return kExitInternal;
    }
    XmlLocalQNPolMgr& manager = session.Manager();
    const bool bExists = manager.LocalPolicyFileExists();
    CDeferredLog deferred;
    const STATUSCODE status = manager.LoadLocalQuillnetPolicy();
    const ParseFailure failure = DescribeParseFailure(
        deferred.Records(), "status " + HexText(static_cast<uint32_t>(status)));
    deferred.Forward();
    if (status != XMLLOCALQNPOLMGR_SUCCESS) {
        if (context.Options().bJson) {
            CJsonWriter json(context.Out());
            json.BeginObject().Key("formatVersion").Number(1).Key("loaded").Bool(false);
            json.Key("policyFile").String(path).Key("error").BeginObject();
            json.Key("message").String(failure.message).Key("line").Number(failure.line);
            json.Key("column").Number(failure.column).EndObject().EndObject().Finish();
        }
        context.Error("cannot load " + path +
                      (failure.line != 0 ? ":" + std::to_string(failure.line) + ":" +
                                               std::to_string(failure.column)
                                         : std::string()) +
                      ": " + failure.message + " (`qnpolicy check` lists every flaw)");
        return kExitFindings;
    }
    const LocalQNPolicyInfo info = manager.GetLocalPolicyInfo();
    if (context.Options().bJson) {
        writeJson(context.Out(), path, bExists, manager, info);
    } else {
        printText(context.Out(), path, bExists, manager, info);
    }
    return kExitSuccess;
}

}  // namespace qnpolicy::tool
