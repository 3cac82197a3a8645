// SPDX-License-Identifier: Apache-2.0
// Loading the policy file: the record reset, the FIPS-mode retention over successive loads,
// the missing file, failed parses that must leave the retention alone, and a file rewritten
// while it is read.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "LocalPolicyDocument.h"
#include "LocalPolicySettings.h"
#include "PolicyDocumentFixture.h"
#include "XmlLocalQNPolMgrTestPeer.h"
#include "XmlParser.h"

namespace {

using Mgr = XmlLocalQNPolMgr;

// The retained mode, the record's mode and the modified-on-disk flag as one text.
std::string fipsState(Mgr& mgr) {
    return std::to_string(XmlLocalQNPolMgrTestPeer::retainedFipsMode(mgr)) +
           std::to_string(mgr.GetLocalPolicyInfo().UseFIPSMode()) +
           std::to_string(mgr.FipsModeModifiedOnDisk());
}

using PolicyLoading = qntest::PolicyDocumentFixture;

// Each step of a sequence, on a fresh manager: what is at the policy path (a document, "dir" a
// directory, nullopt nothing) or "reset" (the record reset, nothing loaded), then whether the
// load failed, the retained mode (0 none, 1 enabled, 2 disabled), the record's mode, the
// modified-on-disk flag and BypassDownloader. Only a load that parses the file fixes or applies
// the retained mode, and only "true" states it enabled; a file without the element states false.
// A failed load or a missing file leaves the mode and the flag alone and gives the defaults plus
// what came before the failure, FIPS mode off; a reset keeps what the manager has learnt. A load
// that parses the file logs the record's mode. (The records of a failed load:
// AFailedReadNamesTheParserCallThatFailed.)
TEST_F(PolicyLoading, OnlyALoadThatParsesTheFileFixesOrAppliesTheRetainedMode) {
    const auto doc = [](const std::string& children) {
        return "<QuillnetLocalPolicy>" + children + "</QuillnetLocalPolicy>";
    };
    const std::string cutShort =
        "<QuillnetLocalPolicy><FipsMode>true</FipsMode><BypassDownloader>true</BypassDownloader>"
        "<OCSPRevocation>tr";
    const std::string doctype = "<!DOCTYPE QuillnetLocalPolicy>" + doc("<FipsMode>true</FipsMode>");
    const std::vector<std::pair<std::optional<std::string>, const char*>> sequences[] = {
        {{cutShort, "1 000 1"},
         {doc("<FipsMode>TRUE</FipsMode>"), "0 200 0"},
         {doc("<FipsMode>true</FipsMode><BypassDownloader>true</BypassDownloader>"), "0 201 1"},
         {"reset", "0 201 0"},
         {"<QuillnetLocalPolicy><FipsMode>false</fipsmode>", "1 201 0"},
         {doctype, "1 201 0"},
         {"dir", "1 201 0"},
         {std::nullopt, "0 201 0"}},
        {{doc("<FipsMode>true</FipsMode>"), "0 110 0"},
         {doc("<FipsMode>true</FipsMode>"), "0 110 0"},
         {std::nullopt, "0 100 0"},
         {doc("<FipsMode>false</FipsMode>"), "0 111 0"},
         {cutShort, "1 101 1"},
         {doc("<BypassDownloader>true</BypassDownloader>"), "0 111 1"},
         {doctype, "1 101 0"}}};
    for (const auto& sequence : sequences) {
        Mgr mgr;
        for (const auto& [content, expected] : sequence) {
            SCOPED_TRACE(content.value_or("(no file)"));
            STATUSCODE status = 0;
            m_log.clear();
            if (content == "reset") {
                mgr.ResetLocalPolicyInfo();
            } else {
                std::filesystem::remove(policyPath());
                if (content == "dir") {
                    std::filesystem::create_directory(policyPath());
                } else if (content) {
                    writePolicy(*content);
                }
                status = mgr.LoadLocalQuillnetPolicy();
            }
            EXPECT_EQ(std::to_string(status != 0) + " " + fipsState(mgr) + " " +
                          std::to_string(mgr.GetLocalPolicyInfo().BypassDownloader()),
                      expected);
            if (!content) {
                EXPECT_TRUE(logged().empty()) << "a missing file is no news";
            } else if (status == 0 && *content != "reset") {
                EXPECT_EQ(logged(),
                          std::vector<std::string>{qntest::fipsRecord(expected[3] == '1')});
            }
        }
    }
}

// What cannot be examined is not "no policy": a load by a user who may not search the policy's
// directory (0700, root's) opens the file, fails, and returns the parser's status with its
// record naming the path and errno, then the loader's, instead of the defaults and success.
TEST_F(PolicyLoading, APolicyInAnUnsearchableDirectoryFailsTheLoad) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to drop to an unprivileged user";
    }
    load("<FipsMode>true</FipsMode>");
    const std::string outcome = qntest::asNobody([this] {
        m_log.clear();
        std::string text = std::to_string(m_mgr->LoadLocalQuillnetPolicy());
        for (const std::string& record : logged()) {
            text += "\n" + record;
        }
        return text;
    });
    EXPECT_EQ(outcome,
              std::to_string(XMLPARSER_ERROR_FILE_OPEN) +
                  "\nparseFile 69 vpn/Common/Xml/XmlParser \"Cannot open \"" + policyPath() +
                  "\": open failed: Permission denied\"  0\n" +
                  qntest::managerRecord("LoadLocalQuillnetPolicy", Logging::DBG_Error, "",
                                        "XmlParser::parseFile", XMLPARSER_ERROR_FILE_OPEN));
}

// A read that fails leaves the parser's record, then the loader's naming the parser call that
// failed: the one for the file, for bytes or for a stream.
TEST_F(PolicyLoading, AFailedReadNamesTheParserCallThatFailed) {
    const std::string broken = "<QuillnetLocalPolicy><FipsMode>true</Fips";
    writePolicy(broken);
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ASSERT_EQ(::write(fds[1], broken.data(), broken.size()), static_cast<ssize_t>(broken.size()));
    ::close(fds[1]);
    const qnpolicy::ReadOptions logging;
    const std::vector<std::pair<std::function<STATUSCODE()>, const char*>> reads = {
        {[this] { return m_mgr->LoadLocalQuillnetPolicy(); }, "XmlParser::parseFile"},
        {[&] { return qnpolicy::ReadPolicyFile(policyPath(), logging).status; },
         "XmlParser::parseFile"},
        {[&] { return qnpolicy::ReadPolicyBytes(broken, "p", logging).status; },
         "XmlParser::parseBuffer"},
        {[&] { return qnpolicy::ReadPolicyStream(fds[0], "<stdin>", logging).status; },
         "XmlParser::parseStream"},
    };
    for (const auto& [read, callee] : reads) {
        m_log.clear();
        EXPECT_EQ(read(), XMLPARSER_ERROR_NOT_WELL_FORMED) << callee;
        ASSERT_EQ(logged().size(), 2U) << callee;
        EXPECT_EQ(logged()[1], qntest::managerRecord("LoadLocalQuillnetPolicy", Logging::DBG_Error,
                                                     "", callee, XMLPARSER_ERROR_NOT_WELL_FORMED));
    }
    ::close(fds[0]);
}

// A load that stopped inside the update section and the server list must not make the next
// file's stray elements count.
TEST_F(PolicyLoading, NothingOfAnAbortedLoadCarriesIntoTheNext) {
    writePolicy(
        "<QuillnetLocalPolicy><EnableCRLCheck>true</EnableCRLCheck><UpdatePolicy>"
        "<AuthorizedServerList><ServerName>gw</ServerName>");
    EXPECT_NE(m_mgr->LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
    const LocalQNPolicyInfo info = load(
        "<AllowHelpUpdatesFromAnyServer>false</AllowHelpUpdatesFromAnyServer>"
        "<ServerName>stray</ServerName>");
    EXPECT_EQ(qntest::summarize(info), qntest::summarize(LocalQNPolicyInfo()));
    EXPECT_EQ(logged(),
              (std::vector<std::string>{qntest::structureWarning(), qntest::fipsRecord(false)}));
}

// A manager that rewrites its own policy file in place (written over from its start, then cut
// to its new size) while a load reads it, as a program saving over it would: at the first
// setting, once the first piece of the file has been read, whenever bRewrite is set.
class RewritingManager : public Mgr {
  public:
    explicit RewritingManager(std::string path) : m_path(std::move(path)) {}
    void addElement(const std::string& elementName) override {
        Mgr::addElement(elementName);
        if (bRewrite && FindLocalPolicySetting(elementName) != nullptr) {
            bRewrite = false;
            std::fstream(m_path, std::ios::binary | std::ios::in | std::ios::out) << text;
            std::filesystem::resize_file(m_path, text.size());
        }
    }
    bool bRewrite = false;
    std::string text;

  private:
    std::string m_path;
};

// Every other one of 40 loads has its file rewritten in place with the other version while
// it reads it: the load reads the first piece of one version and, unless it refuses, the rest of
// the other, whose servers differ. Such a load is refused; the loads between read one version
// whole.
TEST_F(PolicyLoading, ALoadDuringAnInPlaceRewriteNeverSucceedsWithAMixedRecord) {
    // A comment of 66,000 bytes puts the servers beyond the first piece of input the parser reads
    // (64 KiB).
    const auto version = [](const char* flag, const char* server) {
        std::string text = "<QuillnetLocalPolicy><" + std::string(flag) + ">true</" + flag + ">" +
                           "<!--" + std::string(66000, 'x') + "-->" +
                           "<UpdatePolicy><AuthorizedServerList>";
        for (int i = 0; i < 3; ++i) {
            text += "<ServerName>" + std::string(server) + std::to_string(i) + "</ServerName>";
        }
        return text + "</AuthorizedServerList></UpdatePolicy></QuillnetLocalPolicy>";
    };
    const std::string versions[] = {version("BypassDownloader", "a"),
                                    version("RestrictWebLaunch", "bb")};
    std::map<std::string, std::string> names;  // a whole version's record, summarized
    for (const char* name : {"a", "b"}) {
        writePolicy(versions[name[0] - 'a']);
        names[qntest::summarize(loadAsIs())] = name;
    }
    RewritingManager mgr(policyPath());
    std::map<std::string, int> outcomes;  // a version's name, "mixed", or the status
    for (int i = 0; i < 40; ++i) {
        mgr.bRewrite = i % 2 == 0;
        mgr.text = versions[(i / 2 + 1) % 2];
        const STATUSCODE status = mgr.LoadLocalQuillnetPolicy();
        const auto name = names.find(qntest::summarize(mgr.GetLocalPolicyInfo()));
        ++outcomes[status != XMLLOCALQNPOLMGR_SUCCESS ? std::to_string(status)
                   : name != names.end()              ? name->second
                                                      : "mixed"];
        m_log.clear();
    }
    EXPECT_EQ(outcomes,
              (std::map<std::string, int>{
                  {std::to_string(XMLPARSER_ERROR_FILE_CHANGED), 20}, {"a", 10}, {"b", 10}}));
}

}  // namespace
