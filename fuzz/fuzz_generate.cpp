// SPDX-License-Identifier: Apache-2.0
// Generation end to end: fuzzed installer arguments through GenerateLocalPolicy into a real
// file, loaded back with LoadLocalQuillnetPolicy and compared with what the reader makes of a
// document that states the settings the arguments ask for directly (statedDocument).
//
// The input is cut at NUL bytes into at most 40 pieces, one argument each (see argumentFrom).
// Oracle: an argument counts when it names a known abbreviation with a non-empty value, one of
// the row's allowed values if it lists any (matched ignoring case, written as listed); the
// first per row wins. Only a value that is not printable ASCII may make the write fail (what
// XML cannot carry: xml_writer_test; the old file kept: policy_generation_test). No temporary
// file is ever left beside the policy file, and no empty server element is written.

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "AppLog.h"
#include "FuzzCheck.h"
#include "LocalPolicyDocument.h"
#include "PolicyModel.h"
#include "QnBuildConfig.h"
#include "StoragePath.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlWriterSyntax.h"

namespace {

using Vocabulary = std::map<std::string, LocalPolicySetting>;

std::string g_dir;  // the per-process installation directory, ending in '/'

using qnfuzz::check;

// The argument a piece stands for; what generation must take from it goes into accepted
// (element to text, the first per element). The piece's first byte steers: bit 0 clear, the
// rest without any '=' (ignored; "\xFF" stands for a null entry). Set, the row picked by bits
// 3-7 with the rest as its value, or for a row that lists allowed values one of them (picked
// by the rest's length), its letters' case flipped where the rest has odd bytes. Bit 1 set
// then spoils the argument: bit 2 set, an unknown abbreviation; clear, a value the row refuses.
std::string argumentFrom(const std::string& piece, const Vocabulary& vocabulary,
                         std::map<std::string, std::string>& accepted) {
    const auto mode = static_cast<uint8_t>(piece.empty() ? 0 : piece[0]);
    std::string rest = piece.substr(piece.empty() ? 0 : 1);
    if ((mode & 1U) == 0) {
        rest.erase(std::remove(rest.begin(), rest.end(), '='), rest.end());
        return rest;
    }
    const auto& [abbreviation, row] =
        *std::next(vocabulary.begin(), (mode >> 3U) % vocabulary.size());
    const std::list<std::string>& allowed = row.listAllowedValues;
    const std::string written =
        allowed.empty() ? rest : *std::next(allowed.begin(), rest.size() % allowed.size());
    std::string value = written;
    for (size_t k = 0; !allowed.empty() && k < value.size() && k < rest.size(); ++k) {
        value[k] = static_cast<char>(value[k] ^ ((rest[k] & 1) << 5));  // all are letters
    }
    if ((mode & 2U) != 0) {
        return (mode & 4U) != 0 ? abbreviation + "_=" + value
                                : abbreviation + "=" + (allowed.empty() ? "" : "x" + value);
    }
    if (!written.empty()) {
        accepted.emplace(row.tstrFullName, written);
    }
    return abbreviation + "=" + value;
}

// The document that states the accepted settings as the arguments give them: each text escaped
// as XML needs, in its row's section, the server list one element per non-empty name between
// "," and ";".
std::string statedDocument(const std::map<std::string, std::string>& accepted,
                           const Vocabulary& vocabulary) {
    std::string root;
    std::string update;
    for (const auto& [abbreviation, row] : vocabulary) {
        const auto found = accepted.find(row.tstrFullName);
        if (found == accepted.end()) {
            continue;
        }
        std::string text = qnxml::escapedText(found->second);
        if (row.tstrFullName == "AuthorizedServerList") {
            text.clear();
            for (const std::string& server : qntest::pieces(found->second, ",;")) {
                text += qntest::el("ServerName", qnxml::escapedText(server));
            }
        }
        (row.bIsUpdatePolicy ? update : root) += qntest::el(row.tstrFullName, text);
    }
    return "<QuillnetLocalPolicy qnversion=\"" QN_CLIENT_VERSION "\">" + root +
           qntest::el("UpdatePolicy", update) + "</QuillnetLocalPolicy>";
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    CAppLog::SetSink([](const CAppLogRecord&) {});
    // On tmpfs where there is one, since every generation fsyncs the file and the directory.
    g_dir = std::string(::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/qn-fuzz-XXXXXX";
    check(::mkdtemp(g_dir.data()) != nullptr);
    g_dir += '/';
    CStoragePath* pStoragePath = nullptr;
    check(CStoragePath::createSingletonInstance(pStoragePath, g_dir) == CSTORAGEPATH_SUCCESS);
    // Leaves nothing behind when the fuzzer exits normally (time or run limit reached).
    std::atexit([] { std::filesystem::remove_all(g_dir); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    XmlLocalQNPolMgr generator;
    const Vocabulary vocabulary = generator.GetPolicyTransTable();
    std::vector<std::string> arguments;
    arguments.reserve(40);  // argv points into these strings
    std::vector<char*> argv;
    std::map<std::string, std::string> accepted;
    std::istringstream pieces(std::string(reinterpret_cast<const char*>(data), size));
    for (std::string piece; argv.size() < 40 && std::getline(pieces, piece, '\0');) {
        arguments.push_back(argumentFrom(piece, vocabulary, accepted));
        argv.push_back(arguments.back() == "\xFF" ? nullptr : arguments.back().data());
    }
    const int count = static_cast<int>(argv.size());
    argv.push_back(nullptr);  // as in main's argv; keeps the array non-null when it is empty

    const bool bResult = generator.GenerateLocalPolicy(argv.data(), count, true);
    // Nothing but the policy file in the directory: never a temporary file left behind.
    check(std::distance(std::filesystem::directory_iterator(g_dir), {}) ==
          std::filesystem::exists(g_dir + "QuillnetLocalPolicy.xml"));
    if (!bResult) {  // text of printable ASCII is always written
        check(std::any_of(accepted.begin(), accepted.end(), [](const auto& setting) {
            return std::any_of(setting.second.begin(), setting.second.end(),
                               [](char ch) { return ch < ' ' || ch > '~'; });
        }));
        return 0;
    }
    // Never an empty server element, which the reader would skip without a trace in the record.
    std::ostringstream written;
    written << std::ifstream(g_dir + "QuillnetLocalPolicy.xml").rdbuf();
    check(written.str().find("<ServerName/>") == std::string::npos);
    XmlLocalQNPolMgr loader;  // fresh: no FIPS mode retained from an earlier input
    check(loader.LoadLocalQuillnetPolicy() == XMLLOCALQNPOLMGR_SUCCESS);
    qnpolicy::ReadOptions quiet;
    quiet.bLog = false;
    const qnpolicy::DocumentRead stated =
        qnpolicy::ReadPolicyBytes(statedDocument(accepted, vocabulary), "stated", quiet);
    check(stated.status == 0);
    check(qntest::summarize(loader.GetLocalPolicyInfo()) == qntest::summarize(stated.record));
    return 0;
}
