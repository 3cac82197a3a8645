// SPDX-License-Identifier: Apache-2.0
// The policy document reader: the rules of structure, lists and versions that turn a policy
// file's elements into settings, driven through real files and the real parser, each outcome
// compared as a whole record. (Which texts each setting applies, and that the last occurrence
// wins: policy_documents_test; certificate-store exclusions: policy_generation_test.)

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "PolicyDocumentFixture.h"
#include "XmlLocalQNPolMgrConstants.h"

namespace {

using Info = LocalQNPolicyInfo;
using Records = std::vector<std::string>;

using qntest::el;
std::string section(const std::string& children) {
    return el("UpdatePolicy", children);
}

class PolicyReader : public qntest::PolicyDocumentFixture {
  protected:
    // Loads the document and expects exactly this record, these records logged by the reader
    // and then the loader's FIPS line.
    void expectDocument(const std::string& document, const Info& expected, Records records = {}) {
        SCOPED_TRACE(document);
        writePolicy(document);
        EXPECT_EQ(qntest::summarize(loadAsIs()), qntest::summarize(expected));
        records.push_back(qntest::fipsRecord(false));
        EXPECT_EQ(logged(), records);
    }
    void expectLoad(const std::string& children, const Info& expected, Records records = {}) {
        expectDocument(el("QuillnetLocalPolicy", children), expected, std::move(records));
    }
};

// Outside the section (under the root, after the section closed, after an inner section
// closed) an update permission changes nothing and draws one warning. (Which rows are update
// permissions: the catalogue's suite.)
TEST_F(PolicyReader, UpdatePermissionOutsideUpdatePolicyOnlyWarns) {
    const std::string locked = el("AllowHelpUpdatesFromAnyServer", "false");
    for (const std::string& outside :
         {locked, "<UpdatePolicy/>" + locked, section(section("") + locked)}) {
        expectLoad(outside, Info(), {qntest::structureWarning()});
    }
}

// Each case: the caching elements' texts and the record's caching text.
TEST_F(PolicyReader, CachingListStopsAtFalseOrAnUnknownToken) {
    const auto caching = [](const char* text) { return el("RestrictPreferenceCaching", text); };
    const std::pair<std::string, const char*> cachingCases[] = {
        {caching("CredentialsAndThumbprints,AutomaticServerSelection"),
         "false,CredentialsAndThumbprints,AutomaticServerSelection"},
        {caching("All") + caching(","), "false,All"},
        {caching("Credentials,,Thumbprints,"), "false,Credentials,Thumbprints"},
        {caching("Credentials,false,All"), "false"},
        {caching("All,Credentials, Thumbprints"), "false"},  // tokens are not trimmed
        {caching("Credentials") + caching("Thumbprints,bogus,All"), "false"},
    };
    for (const auto& [children, expected] : cachingCases) {
        EXPECT_EQ(load(children).RestrictPrefCachingStr(), expected) << children;
    }
}

// A later documented tunnel text replaces an earlier one, "false" too. (Which texts apply and
// what the others leave: policy_documents_test.)
TEST_F(PolicyReader, TunnelTakesTheLastDocumentedTextFalseIncluded) {
    EXPECT_EQ(load(el("RestrictTunnelProtocols", "tls") + el("RestrictTunnelProtocols", "false"))
                  .RestrictTunnelProtocols(),
              RESTRICT_TUNNEL_PROTOCOL_FALSE);
}

TEST_F(PolicyReader, ServerNamesCountOnlyInsideTheListInsideUpdatePolicy) {
    const auto list = [](const std::string& children) {
        return el("AuthorizedServerList", children);
    };
    const std::string names = el("ServerName", "gw1") + el("ServerName", "gw1") +
                              el("ServerName", " gw 2 ") + "<ServerName/>" +
                              el("ServerName", "a&amp;b,c;d");
    EXPECT_EQ(
        load(section(list(names)) + section(list(el("ServerName", "c")))).GetAuthorizedServerList(),
        (std::list<std::string>{"gw1", "gw1", " gw 2 ", "a&b,c;d", "c"}));
    for (const std::string& outside :
         {list(names), section(names), section(list("") + names), list(section(names))}) {
        expectLoad(outside, Info());
    }
}

TEST_F(PolicyReader, RootVersionIsStoredAndWarnedAboutOnlyWhenNewer) {
    const std::string newer = qntest::managerRecord(
        "addAttribute", Logging::DBG_Warning,
        "The parsed Local Security Policy File version is newer than the current Quillnet "
        "Client. Unexpected behaviors can result.");
    const std::string client = qnpolicy::kClientVersion;
    const std::pair<std::string, bool> cases[] = {
        {client, false},       {"0.9", false},  {"", false},
        {client + ".1", true}, {"99999", true}, {"99999,1", true},
    };
    for (const auto& [version, bNewer] : cases) {
        Info expected;  // a newer document applies as well
        expected.BypassDownloader(true);
        expected.QNVersion(version);
        expectDocument(std::string("<QuillnetLocalPolicy xmlns:xsi=\"urn:x\" qnversion=\"") +
                           version + "\">" + el("BypassDownloader", "true") +
                           "</QuillnetLocalPolicy>",
                       expected, bNewer ? Records{newer} : Records{});
    }
}

TEST_F(PolicyReader, DocumentsTheReaderDoesNotRecogniseChangeNothing) {
    for (const std::string& document :
         {el("QuillnetLocalPolicy",
             el("bypassdownloader", "true") + el("BypassDownloaderX", "true") +
                 // longer than every known name, and a prefix of none
                 section(el("AllowManagementVPNProfileUpdatesFromAnyServerX", "false"))),
          el("QuillnetLocalPolicy", "<BypassDownloader>true<Child/></BypassDownloader>"),
          std::string("<QuillnetLocalPolicy><BypassDownloader qnversion=\"9\"/>"
                      "</QuillnetLocalPolicy>"),
          std::string("<quillnetlocalpolicy qnversion=\"9\"/>")}) {
        expectDocument(document, Info());
    }
}

}  // namespace
