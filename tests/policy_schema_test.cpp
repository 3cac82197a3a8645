// SPDX-License-Identifier: Apache-2.0
// The generated XML Schema, judged by an independent validator (xmllint of libxml2): every
// document generation writes from valid arguments is valid, and every document in which the
// client will not do what the file seems to say is not.

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include "LocalPolicyKinds.h"
#include "LocalPolicySettings.h"
#include "TestSupport.h"

namespace {

const std::string kRootStart = qntest::kPolicyRootOpen + ">\n";
constexpr char kRootEnd[] = "</QuillnetLocalPolicy>\n";

// xmllint's status: 0 valid, 3 invalid against the schema (1 would be not well-formed,
// 4/5 a schema that does not compile).
constexpr int kValid = 0;
constexpr int kInvalid = 3;

int validate(const std::string& path) {
    const std::string command =
        "xmllint --noout --nonet --schema '" QN_SCHEMA "' '" + path + "' 2>/dev/null";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Generates a policy from arguments into a fresh directory; the path of the file written.
std::string generateInto(const qntest::TempDir& dir, const std::vector<std::string>& args) {
    qntest::LogCapture quiet;
    qntest::StoragePathScope storagePath(dir.path());
    qntest::ManagerScope manager;
    std::vector<const char*> argv;
    argv.reserve(args.size());
    for (const std::string& arg : args) {
        argv.push_back(arg.c_str());
    }
    EXPECT_TRUE(qntest::generate(*manager, argv));
    return dir.path() + "QuillnetLocalPolicy.xml";
}

// The values an installer may give a row that the client then applies as given: the listed
// values the reader applies in their listed spelling, else typical free texts.
std::vector<std::string> appliedValues(const LocalPolicySettingInfo& setting) {
    if (setting.kind == LocalPolicySettingKind::CACHING_LIST) {
        return {"false", "Credentials,Thumbprints", "All", "AutomaticServerSelection,"};
    }
    if (setting.kind == LocalPolicySettingKind::SERVER_LIST) {
        return {"gw1.example.com;gw2.example.com,gw3", ";", "vpn.example.com"};
    }
    const std::vector<std::string> applied = qnpolicy::AppliedTexts(setting);
    std::vector<std::string> values;
    std::copy_if(setting.allowedValues.begin(), setting.allowedValues.end(),
                 std::back_inserter(values), [&applied](const std::string& value) {
                     return std::find(applied.begin(), applied.end(), value) != applied.end();
                 });
    return values;
}

}  // namespace

// Each abbreviation with each value the client applies, alone, and all of them together.
TEST(PolicySchema, EveryDocumentGeneratedFromValidArgumentsIsValid) {
    std::vector<std::vector<std::string>> argumentSets = {{}};
    std::vector<std::string> everything;
    for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
        if (setting.abbreviation.empty()) {
            continue;
        }
        const std::vector<std::string> values = appliedValues(setting);
        ASSERT_FALSE(values.empty()) << setting.element;
        for (const std::string& value : values) {
            argumentSets.push_back({setting.abbreviation + "=" + value});
        }
        everything.push_back(setting.abbreviation + "=" + values.front());
    }
    argumentSets.push_back(everything);
    for (const std::vector<std::string>& args : argumentSets) {
        qntest::TempDir dir;
        const std::string path = generateInto(dir, args);
        EXPECT_EQ(validate(path), kValid) << qntest::readFile(path);
    }
}

// Hand-written documents: valid ones in any order; invalid ones for each way the client reads
// a file differently from how it looks.
TEST(PolicySchema, RejectsWhatTheClientIgnoresRefusesOrReadsOtherwise) {
    const std::vector<std::pair<std::string, int>> cases = {
        {"", kValid},
        {"<UpdatePolicy><AuthorizedServerList/></UpdatePolicy><FipsMode>false</FipsMode>"
         "<RestrictPreferenceCaching>Credentials,,All</RestrictPreferenceCaching>",
         kValid},
        {"<FipsMode>TRUE</FipsMode>", kInvalid},
        {"<FipsMode></FipsMode>", kInvalid},
        {"<BypassDownloder>true</BypassDownloder>", kInvalid},
        {"<BypassDownloader>true</BypassDownloader><BypassDownloader>false</BypassDownloader>",
         kInvalid},
        {"<BypassDownloader value=\"true\">true</BypassDownloader>", kInvalid},
        {"<RestrictPreferenceCaching>Credentials,thumbprints</RestrictPreferenceCaching>",
         kInvalid},
        {"<RestrictPreferenceCaching>Credentials,false</RestrictPreferenceCaching>", kInvalid},
        {"<RestrictTunnelProtocols>TLS</RestrictTunnelProtocols>", kInvalid},
        {"<AllowSoftwareUpdatesFromAnyServer>false</AllowSoftwareUpdatesFromAnyServer>", kInvalid},
        {"<AuthorizedServerList><ServerName>gw</ServerName></AuthorizedServerList>", kInvalid},
        {"<UpdatePolicy><ServerName>gw</ServerName></UpdatePolicy>", kInvalid},
        {"<UpdatePolicy><AuthorizedServerList>gw1,gw2</AuthorizedServerList></UpdatePolicy>",
         kInvalid},
        {"<UpdatePolicy><AuthorizedServerList><ServerName> gw</ServerName>"
         "</AuthorizedServerList></UpdatePolicy>",
         kInvalid},
        {"<UpdatePolicy><AuthorizedServerList><ServerName>gw1 gw2</ServerName>"
         "<ServerName>gw1&#10;gw2</ServerName><ServerName>gw&#x85;</ServerName>"
         "</AuthorizedServerList></UpdatePolicy>",
         kInvalid},
        {"<UpdatePolicy><AuthorizedServerList><ServerName>caf\xC3\xA9.example</ServerName>"
         "</AuthorizedServerList></UpdatePolicy>",
         kValid},
        {"<UpdatePolicy><AuthorizedServerList><ServerName/></AuthorizedServerList>"
         "</UpdatePolicy>",
         kInvalid},
        {"<UpdatePolicy><UpdatePolicy/></UpdatePolicy>", kInvalid},
    };
    qntest::TempDir dir;
    for (const auto& [children, expected] : cases) {
        const std::string path = dir.write("p.xml", kRootStart + children + kRootEnd);
        EXPECT_EQ(validate(path), expected) << children;
    }
    const std::string wrongNamespace =
        dir.write("n.xml", "<QuillnetLocalPolicy xmlns=\"http://schemas.xmlsoap.org/encoding/\"/>");
    EXPECT_EQ(validate(wrongNamespace), kInvalid);
    EXPECT_EQ(validate(QN_FLAWED_SAMPLE), kInvalid);
}
