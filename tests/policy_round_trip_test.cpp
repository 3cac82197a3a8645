// What generation and the writer put into a file reads back through the parser exactly.

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "PolicyDocumentFixture.h"
#include "QNCSaxWriter.h"
#include "TestSupport.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlParser.h"

namespace {

using Events = std::vector<std::string>;

// Records every event as one line: "<name", "@name=value", "=text", ">name".
class RecordingMgr : public XmlMgr {
  public:
    void addElement(const std::string& name) override { events.push_back("<" + name); }
    void endElement(const std::string& name) override { events.push_back(">" + name); }
    void setElementValue(const std::string& value) override { events.push_back("=" + value); }
    void addAttribute(const std::string& name, const std::string& value) override {
        events.push_back("@" + name + "=" + value);
    }
    Events events;
};

Events parseEvents(const std::string& path) {
    RecordingMgr recorder;
    EXPECT_EQ(XmlParser(&recorder).parseFile(path, true), XMLPARSER_SUCCESS) << path;
    return recorder.events;
}

// The events of a policy document whose root holds the given events.
Events policyEvents(const Events& children) {
    Events events = {
        "<QuillnetLocalPolicy",
        "@xmlns=http://schemas.xmlsoap.org/encoding/",
        "@xmlns:xsi=http://www.w3.org/2001/XMLSchema-instance",
        "@xsi:schemaLocation=http://schemas.xmlsoap.org/encoding/ QuillnetLocalPolicy.xsd",
        "@qnversion=5.1.8.105",
    };
    events.insert(events.end(), children.begin(), children.end());
    events.emplace_back(">QuillnetLocalPolicy");
    return events;
}

Events leafEvents(const std::string& name, const std::string& text) {
    return {"<" + name, "=" + text, ">" + name};
}

Events serverListEvents(const std::vector<std::string>& servers) {
    Events events = {"<UpdatePolicy", "<AuthorizedServerList"};
    for (const std::string& server : servers) {
        const Events leaf = leafEvents("ServerName", server);
        events.insert(events.end(), leaf.begin(), leaf.end());
    }
    events.insert(events.end(), {">AuthorizedServerList", ">UpdatePolicy"});
    return events;
}

class PolicyRoundTripTest : public ::testing::Test {
  protected:
    std::string policyPath() const { return m_dir.path() + qnpolicy::kPolicyFileName; }

    bool generate(const std::string& argument) {
        std::string copy = argument;
        char* args[] = {copy.data()};
        return m_mgr->GenerateLocalPolicy(args, 1, true);
    }

    qntest::TempDir m_dir;
    qntest::StoragePathScope m_paths{m_dir.path()};
    qntest::ManagerScope m_mgr;
};

TEST_F(PolicyRoundTripTest, EveryAbbreviationAndEachOfItsValuesReadsBack) {
    // Rows without a value list take free text: realistic samples (server lists are split,
    // so their samples hold no separator; splitting has its own tests).
    const std::list<std::string> cachingTexts = {"All", "Credentials,Thumbprints", "false"};
    const std::list<std::string> serverTexts = {"gw1", "vpn.example.com"};
    int checked = 0;
    for (const auto& row : m_mgr->GetPolicyTransTable()) {
        const LocalPolicySetting& setting = row.second;
        const bool bServerList = setting.tstrFullName == qnpolicy::kAuthorizedServerListElement;
        const std::list<std::string>& values = !setting.listAllowedValues.empty()
                                                   ? setting.listAllowedValues
                                               : bServerList ? serverTexts
                                                             : cachingTexts;
        for (const std::string& value : values) {
            SCOPED_TRACE(row.first + "=" + value);
            ASSERT_TRUE(generate(row.first + "=" + value));
            Events children;
            if (bServerList) {
                children = serverListEvents({value});
            } else if (setting.bIsUpdatePolicy) {
                children = leafEvents(setting.tstrFullName, value);
                children.insert(children.begin(), "<UpdatePolicy");
                children.emplace_back(">UpdatePolicy");
            } else {
                children = leafEvents(setting.tstrFullName, value);
            }
            EXPECT_EQ(parseEvents(policyPath()), policyEvents(children));
            ++checked;
        }
    }
    EXPECT_EQ(m_mgr->GetPolicyTransTable().size(), 29u);
    EXPECT_GE(checked, 29 * 2);
}

TEST_F(PolicyRoundTripTest, FreeTextWithMarkupCarriageReturnsAndSpacesReadsBackExactly) {
    const std::vector<std::string> texts = {
        "a<b>&c\"d'e",
        "]]>",
        "line1\r\nline2\rline3\n",
        "  lead and trail  ",
        "\ttab\t",
        "&amp;&#13;",
        "caf\xC3\xA9 \xF0\x9F\x98\x80",
        " ",
        "<![CDATA[x]]>",
        "<!-- not a comment -->",
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(testing::PrintToString(text));
        ASSERT_TRUE(generate("rpc=" + text));
        EXPECT_EQ(parseEvents(policyPath()),
                  policyEvents(leafEvents("RestrictPreferenceCaching", text)));

        if (text.find_first_of(",;") != std::string::npos) {
            continue;  // a server list would split it
        }
        ASSERT_TRUE(generate(std::string("upal=").append(text).append(",").append(text)));
        EXPECT_EQ(parseEvents(policyPath()), policyEvents(serverListEvents({text, text})));
    }
}

TEST_F(PolicyRoundTripTest, ExampleDocumentReadsBackElementByElement) {
    std::vector<std::string> storage = {"bd=true", "fm=true", "rtp=false", "upsu=false",
                                        "upal=gw1,gw2"};
    std::vector<char*> args;
    args.reserve(storage.size());
    for (std::string& arg : storage) {
        args.push_back(arg.data());
    }
    ASSERT_TRUE(m_mgr->GenerateLocalPolicy(args.data(), static_cast<int>(args.size()), false));
    EXPECT_EQ(parseEvents(policyPath()), policyEvents({"<BypassDownloader",
                                                       "=true",
                                                       ">BypassDownloader",
                                                       "<FipsMode",
                                                       "=true",
                                                       ">FipsMode",
                                                       "<RestrictTunnelProtocols",
                                                       "=false",
                                                       ">RestrictTunnelProtocols",
                                                       "<UpdatePolicy",
                                                       "<AllowSoftwareUpdatesFromAnyServer",
                                                       "=false",
                                                       ">AllowSoftwareUpdatesFromAnyServer",
                                                       "<AuthorizedServerList",
                                                       "<ServerName",
                                                       "=gw1",
                                                       ">ServerName",
                                                       "<ServerName",
                                                       "=gw2",
                                                       ">ServerName",
                                                       ">AuthorizedServerList",
                                                       ">UpdatePolicy"}));
}

// A random string of XML characters from every range the Char production allows, encoded as
// UTF-8, with the characters that need escaping made frequent.
std::string randomXmlText(std::mt19937& random) {
    static const char32_t kSpecial[] = {'&', '<', '>', '"', '\'', '\t', '\n', '\r', ' ', ']'};
    std::uniform_int_distribution<int> length(0, 40);
    std::uniform_int_distribution<int> kind(0, 5);
    std::string text;
    const int n = length(random);
    for (int i = 0; i < n; ++i) {
        char32_t c = 0;
        switch (kind(random)) {
            case 0:
            case 1:
                c = kSpecial[std::uniform_int_distribution<size_t>(0, 9)(random)];
                break;
            case 2:
                c = std::uniform_int_distribution<char32_t>(0x20, 0x7F)(random);
                break;
            case 3:
                c = std::uniform_int_distribution<char32_t>(0x80, 0xD7FF)(random);
                break;
            case 4:
                c = std::uniform_int_distribution<char32_t>(0xE000, 0xFFFD)(random);
                break;
            default:
                c = std::uniform_int_distribution<char32_t>(0x10000, 0x10FFFF)(random);
                break;
        }
        if (c < 0x80) {
            text.push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            text.push_back(static_cast<char>(0xC0 | (c >> 6)));
            text.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            text.push_back(static_cast<char>(0xE0 | (c >> 12)));
            text.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            text.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            text.push_back(static_cast<char>(0xF0 | (c >> 18)));
            text.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            text.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            text.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return text;
}

TEST(XmlWriterRoundTripTest, AnyAcceptedTextAndAttributeValueReadsBackExactly) {
    qntest::TempDir dir;
    std::mt19937 random(20240611);
    for (int round = 0; round < 300; ++round) {
        const std::string text = randomXmlText(random);
        const std::string value = randomXmlText(random);
        SCOPED_TRACE(testing::PrintToString(text) + " / " + testing::PrintToString(value));
        QNCSaxWriter writer(dir.path(), "doc.xml", "r");
        TStrPairList attributes{{"a", value}};
        writer.startDocument(&attributes);
        writer.startElement("section", nullptr);
        writer.startElement("e", nullptr);
        writer.characters(text);
        writer.endElement("e");
        writer.endElement("section");
        writer.endDocument();
        ASSERT_EQ(writer.writeDocument(), QNCSAXWRITER_SUCCESS);

        Events expected = {"<r", "@a=" + value, "<section", "<e"};
        if (!text.empty()) {
            expected.push_back("=" + text);  // an element without text delivers no text event
        }
        expected.insert(expected.end(), {">e", ">section", ">r"});
        EXPECT_EQ(parseEvents(dir.path() + "doc.xml"), expected);
    }
}

// How the reader turns each abbreviation's written value into the record: applied to a
// default record, it gives the record a load of that one setting must produce.
using Apply = std::function<void(LocalQNPolicyInfo&, const std::string&)>;

Apply flag(void (LocalQNPolicyInfo::*setter)(bool)) {
    return [setter](LocalQNPolicyInfo& info, const std::string& value) {
        (info.*setter)(value == "true");
    };
}

Apply exclusion(uint32_t mask) {
    return [mask](LocalQNPolicyInfo& info, const std::string& value) {
        if (value == "true") {
            info.ExcludeCertStores(mask);
        }
    };
}

const std::map<std::string, Apply>& readerEffects() {
    static const std::map<std::string, Apply> effects = {
        {"fm", flag(&LocalQNPolicyInfo::UseFIPSMode)},
        {"bd", flag(&LocalQNPolicyInfo::BypassDownloader)},
        {"bdl", flag(&LocalQNPolicyInfo::BypassDefaultLocalization)},
        {"rswd", flag(&LocalQNPolicyInfo::RestrictScriptWebDeploy)},
        {"rhwd", flag(&LocalQNPolicyInfo::RestrictHelpWebDeploy)},
        {"rrwd", flag(&LocalQNPolicyInfo::RestrictResourceWebDeploy)},
        {"rlwd", flag(&LocalQNPolicyInfo::RestrictLocalizationWebDeploy)},
        {"rwl", flag(&LocalQNPolicyInfo::RestrictWebLaunchMode)},
        {"sct", flag(&LocalQNPolicyInfo::StrictCertTrustMode)},
        {"ecc", flag(&LocalQNPolicyInfo::EnableCRLCheck)},
        {"orc", flag(&LocalQNPolicyInfo::EnableOCSPRevocation)},
        {"rsc", flag(&LocalQNPolicyInfo::SetRestrictServerCertStore)},
        {"efn", exclusion(LocalQNPolicyInfo::kFirefoxNSSCertStoreMask)},
        {"epf", exclusion(LocalQNPolicyInfo::kPemFileCertStoreMask)},
        {"emn", exclusion(LocalQNPolicyInfo::kMacNativeCertStoreMask)},
        {"ewn", exclusion(LocalQNPolicyInfo::kWinNativeCertStoreMask)},
        {"rpc",
         [](LocalQNPolicyInfo& info, const std::string& value) {
             if (value == "All") {
                 info.RestrictPrefCaching(RESTRICT_PREF_CACHING_ALL);
             } else if (value == "Credentials,Thumbprints") {
                 info.RestrictPrefCaching(RESTRICT_PREF_CACHING_CREDENTIALS);
                 info.RestrictPrefCaching(RESTRICT_PREF_CACHING_THUMBPRINTS);
             }
         }},
        // The reader applies only "false", "ipsec" and "tls" as spelled: the table's "TLS" and
        // "IPSec" are written but leave the default in force.
        {"rtp",
         [](LocalQNPolicyInfo& info, const std::string& value) {
             if (value == "false") {
                 info.RestrictTunnelProtocols(RESTRICT_TUNNEL_PROTOCOL_FALSE);
             }
         }},
        {"upsu", flag(&LocalQNPolicyInfo::SetSoftwareUpdateLock)},
        {"upcu", flag(&LocalQNPolicyInfo::SetComplianceModuleSoftwareUpdateLock)},
        {"upvp", flag(&LocalQNPolicyInfo::SetVPNProfileUpdateLock)},
        {"upmv", flag(&LocalQNPolicyInfo::SetMgmtVPNProfileUpdateLock)},
        {"uppp", flag(&LocalQNPolicyInfo::SetPlexoProfileUpdateLock)},
        {"upsp", flag(&LocalQNPolicyInfo::SetServiceProfileUpdateLock)},
        {"upscr", flag(&LocalQNPolicyInfo::SetScriptUpdateLock)},
        {"uphlp", flag(&LocalQNPolicyInfo::SetHelpUpdateLock)},
        {"upres", flag(&LocalQNPolicyInfo::SetResourceUpdateLock)},
        {"uploc", flag(&LocalQNPolicyInfo::SetLocalizationUpdateLock)},
        {"upal", [](LocalQNPolicyInfo& info,
                    const std::string& value) { info.AddToAuthorizedServerList(value); }},
    };
    return effects;
}

// Generates from one argument with a fresh manager (so that no FIPS mode is retained from
// an earlier load), loads the file back, and returns the record.
LocalQNPolicyInfo generateAndLoad(const std::string& argument) {
    qntest::ManagerScope mgr;
    std::string copy = argument;
    char* args[] = {copy.data()};
    EXPECT_TRUE(mgr->GenerateLocalPolicy(args, 1, true));
    EXPECT_EQ(mgr->LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
    return mgr->GetLocalPolicyInfo();
}

class PolicyLoadRoundTripTest : public ::testing::Test {
  protected:
    qntest::TempDir m_dir;
    qntest::StoragePathScope m_paths{m_dir.path()};
    qntest::LogCapture m_log;  // keeps the loads' informational lines out of the output
};

TEST_F(PolicyLoadRoundTripTest, EveryAbbreviationAndEachOfItsValuesLoadsBack) {
    const std::list<std::string> cachingTexts = {"All", "Credentials,Thumbprints", "false"};
    const std::list<std::string> serverTexts = {"gw1", "vpn.example.com"};
    std::map<std::string, LocalPolicySetting> table;
    {
        qntest::ManagerScope mgr;
        table = mgr->GetPolicyTransTable();
    }
    ASSERT_EQ(table.size(), readerEffects().size());
    for (const auto& row : table) {
        const auto effect = readerEffects().find(row.first);
        ASSERT_NE(effect, readerEffects().end()) << row.first;
        const std::list<std::string>& values = !row.second.listAllowedValues.empty()
                                                   ? row.second.listAllowedValues
                                               : row.first == "upal" ? serverTexts
                                                                     : cachingTexts;
        for (const std::string& value : values) {
            SCOPED_TRACE(row.first + "=" + value);
            LocalQNPolicyInfo expected;
            expected.QNVersion(qnpolicy::kClientVersion);
            effect->second(expected, value);
            EXPECT_EQ(qntest::summarize(generateAndLoad(row.first + "=" + value)),
                      qntest::summarize(expected));
        }
    }
}

TEST_F(PolicyLoadRoundTripTest, ServerNamesWithMarkupCarriageReturnsAndSpacesLoadBackExactly) {
    const std::string value = " gw1 ,a<b>&c\"d'e;line1\r\nline2\r,\ttab\t;]]>;caf\xC3\xA9";
    const LocalQNPolicyInfo loaded = generateAndLoad("upal=" + value);
    EXPECT_EQ(loaded.GetAuthorizedServerList(),
              (std::list<std::string>{" gw1 ", "a<b>&c\"d'e", "line1\r\nline2\r", "\ttab\t", "]]>",
                                      "caf\xC3\xA9"}));
}

TEST_F(PolicyLoadRoundTripTest, HundredThousandServersLoadBackInOrder) {
    std::string value;
    std::list<std::string> servers;
    for (int i = 0; i < 100000; ++i) {
        servers.push_back("gateway-" + std::to_string(i) + ".example.com");
        value += servers.back() + (i % 2 == 0 ? "," : ";");
    }
    const LocalQNPolicyInfo loaded = generateAndLoad("upal=" + value);
    EXPECT_EQ(loaded.GetAuthorizedServerList(), servers);
}

}  // namespace
