// SPDX-License-Identifier: Apache-2.0
// qnpolicy scap: a baseline as SCAP content for the install directory given, or one host's
// waivers as an XCCDF tailoring file.

#include "CommandTable.h"
#include "baseline/Baseline.h"
#include "scap/ScapContent.h"

namespace qnpolicy::tool {

namespace {

class CScapCommand : public CCommand {
  public:
    void AddOptions(COptionList& options) override {
        options
            .Value("--baseline", m_baseline,
                   "The baseline to express, a YAML file (qnpolicy-baseline(5)); - reads it "
                   "from standard input")
            .TypeName("BASELINE")
            .Required();
        options.Flag("--tailoring", m_bTailoring,
                     "Print the waivers that hold today as an XCCDF tailoring file instead: its "
                     "profile deselects each waived rule");
        options
            .Value("--host", m_host,
                   "With --tailoring, the host name that decides which waivers apply (default: "
                   "this machine's)")
            .TypeName("NAME")
            .Needs("--tailoring");
    }

    // The content names the install directory's policy file; it may be made for another host,
    // so the directory need not exist here.
    bool UsesInstallDir() const override { return false; }

    int Run(CToolContext& context) override {
        BaselineParse parse;
        if (const int status = LoadBaseline(context, m_baseline, parse); status != kExitSuccess) {
            return status;
        }
        const ScapTarget target{context.InstallDir(), context.InstallPolicyPath(), ScapTimestamp()};
        context.Out() << (m_bTailoring
                              ? ScapTailoring(parse.baseline, target,
                                              m_host.empty() ? MachineHostName() : m_host, Today())
                              : ScapDataStream(parse.baseline, target));
        return kExitSuccess;
    }

  private:
    std::string m_baseline;
    bool m_bTailoring = false;
    std::string m_host;
};

}  // namespace

std::unique_ptr<CCommand> CreateScapCommand() {
    return std::make_unique<CScapCommand>();
}

}  // namespace qnpolicy::tool
