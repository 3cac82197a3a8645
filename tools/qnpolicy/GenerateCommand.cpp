// qnpolicy generate: the installer's path to a policy file, with a warning where the
// generated file will not do what the arguments ask.

#include <strings.h>  // strcasecmp

#include <map>

#include "Commands.h"
#include "ExitCodes.h"
#include "ToolSession.h"

namespace qnpolicy::tool {

namespace {

constexpr char kTunnelAbbreviation[] = "rtp";
// The tunnel texts the module's reader applies, compared exactly.
const char* const kAppliedTunnelTexts[] = {"false", "ipsec", "tls"};

// The spelling generation writes for the value of the first usable "rtp" argument (the
// first one wins, as in GenerateLocalPolicy), or empty when there is none.
std::string writtenTunnelText(const std::vector<std::string>& policyArgs,
                              const LocalPolicySetting& tunnelRow) {
    const std::string prefix = std::string(kTunnelAbbreviation) + "=";
    for (const std::string& argument : policyArgs) {
        if (argument.compare(0, prefix.size(), prefix) != 0) {
            continue;
        }
        const std::string value = argument.substr(prefix.size());
        for (const std::string& allowed : tunnelRow.listAllowedValues) {
            if (!value.empty() && strcasecmp(allowed.c_str(), value.c_str()) == 0) {
                return allowed;
            }
        }
    }
    return std::string();
}

bool readerApplies(const std::string& tunnelText) {
    for (const char* applied : kAppliedTunnelTexts) {
        if (tunnelText == applied) {
            return true;
        }
    }
    return false;
}

}  // namespace

int RunGenerate(const std::string& installDir, const std::vector<std::string>& policyArgs,
                bool bOverwrite, std::ostream& out, std::ostream& err) {
    CToolSession session;
    if (session.Open(installDir) != XMLLOCALQNPOLMGR_SUCCESS) {
        err << "qnpolicy generate: cannot set up the policy module\n";
        return kExitFailure;
    }
    XmlLocalQNPolMgr& manager = session.Manager();
    const std::string path = session.PolicyPath();
    const bool bExisted = manager.LocalPolicyFileExists();

    // GenerateLocalPolicy takes mutable C strings; these copies live for the call.
    std::vector<std::string> copies = policyArgs;
    std::vector<char*> argv;
    argv.reserve(copies.size());
    for (std::string& copy : copies) {
        argv.push_back(copy.data());
    }
    if (!manager.GenerateLocalPolicy(argv.data(), static_cast<int>(argv.size()), bOverwrite)) {
        err << "qnpolicy generate: the policy file " << path
            << " was not written (see the log lines above)\n";
        return kExitFailure;
    }
    if (bExisted && !bOverwrite) {
        out << "Kept the existing policy file " << path << " (use --overwrite to replace it).\n";
        return kExitSuccess;
    }
    out << "Wrote the policy file " << path << ".\n";

    // The reader applies only lower-case tunnel texts, while generation writes the
    // vocabulary's "TLS" and "IPSec": say so, since the file now claims a restriction the
    // client will not enforce.
    const std::map<std::string, LocalPolicySetting> vocabulary = manager.GetPolicyTransTable();
    const auto tunnelRow = vocabulary.find(kTunnelAbbreviation);
    if (tunnelRow != vocabulary.end()) {
        const std::string written = writtenTunnelText(policyArgs, tunnelRow->second);
        if (!written.empty() && !readerApplies(written)) {
            err << "qnpolicy generate: warning: the tunnel restriction is written as \"" << written
                << "\", which the client's policy reader does not apply (it "
                << "recognises only \"false\", \"ipsec\" and \"tls\"): the client will not "
                << "be restricted to one tunnel protocol.\n";
        }
    }
    return kExitSuccess;
}

}  // namespace qnpolicy::tool
