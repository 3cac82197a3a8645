// Generation end to end: fuzzed installer arguments through GenerateLocalPolicy into a real
// file, loaded back with LoadLocalQuillnetPolicy and compared with a record computed here from
// the arguments alone.
//
// The input is cut at NUL bytes into at most kMaxArguments pieces. A piece's first byte steers
// it: bit 0 set makes the argument a vocabulary abbreviation (picked by the second byte), "=",
// and a value; bit 1 set then takes the value from the row's allowed values with its letters'
// case flipped by the following bytes; otherwise the rest of the piece is the value. Bit 0
// clear passes the rest of the piece through unchanged, and 0xFF stands for a null entry.
// The input's first byte chooses overwrite (false one time in eight).
//
// Oracle: the first accepted value per policy wins; allowed values take the vocabulary's
// spelling; then the reader's rules: "true" is the only true text, the caching list stops at
// its first unknown or "false" token, "TLS" and "IPSec" are not applied, server lists are cut
// at "," and ";" without empty names. A value that XML 1.0 cannot carry makes the write fail,
// and then the previous file must be there byte for byte with no temporary file beside it.

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "AppLog.h"
#include "FuzzInput.h"
#include "LocalQNPolicyInfo.h"
#include "LocalQNPolicyOptionTexts.h"
#include "PolicyModel.h"
#include "QnBuildConfig.h"
#include "StoragePath.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlParser.h"

namespace {

using qnfuzz::check;
using Vocabulary = std::map<std::string, LocalPolicySetting>;

constexpr size_t kMaxArguments = 40;
constexpr uint8_t kNullEntry = 0xFF;
constexpr char kPolicyFileName[] = "QuillnetLocalPolicy.xml";

// The per-process directory that stands for the main installation directory: on tmpfs where
// there is one, because every generation fsyncs the file and the directory.
const std::string& policyDir() {
    static const std::string dir = [] {
        std::string pattern = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        pattern += "/qn-fuzz-generate-XXXXXX";
        check(::mkdtemp(pattern.data()) != nullptr);
        pattern += '/';
        CStoragePath* pStoragePath = nullptr;
        check(CStoragePath::createSingletonInstance(pStoragePath, pattern) == CSTORAGEPATH_SUCCESS);
        return pattern;
    }();
    return dir;
}

// The policy file's bytes, if it exists.
std::optional<std::string> readPolicy() {
    std::ifstream in(policyDir() + kPolicyFileName, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Whether the policy directory holds nothing but the policy file.
bool nothingBesidePolicy() {
    return std::all_of(std::filesystem::directory_iterator(policyDir()), {}, [](const auto& entry) {
        return entry.path().filename() == kPolicyFileName;
    });
}

// Whether XML 1.0 can carry text: an XML parser accepts it, escaped, as an element's content.
bool xmlCanCarry(const std::string& text) {
    std::string document = "<a>";
    for (const char ch : text) {
        document += ch == '<'   ? "&lt;"
                    : ch == '>' ? "&gt;"
                    : ch == '&' ? "&amp;"
                                : std::string(1, ch);
    }
    document += "</a>";
    XmlLocalQNPolMgr probe;
    return XmlParser(&probe).parseBuffer(document.data(), document.size(), true) ==
           XMLPARSER_SUCCESS;
}

// The pieces of text between separators, empty ones dropped.
std::vector<std::string> nonEmptyPieces(const std::string& text, const char* separators) {
    std::vector<std::string> pieces;
    for (size_t begin = 0, end = 0; begin <= text.size(); begin = end + 1) {
        end = std::min(text.find_first_of(separators, begin), text.size());
        if (end > begin) {
            pieces.push_back(text.substr(begin, end - begin));
        }
    }
    return pieces;
}

// The installer argument a piece of input stands for (see the header comment).
std::string argumentFrom(const std::string& piece, const Vocabulary& vocabulary) {
    const uint8_t mode = piece.empty() ? 0 : static_cast<uint8_t>(piece[0]);
    std::string rest = piece.empty() ? piece : piece.substr(1);
    if ((mode & 0x1U) == 0 || rest.empty()) {
        return rest;
    }
    const auto& [abbreviation, row] =
        *std::next(vocabulary.begin(), static_cast<uint8_t>(rest[0]) % vocabulary.size());
    std::string value = rest.substr(1);
    const std::list<std::string>& allowed = row.listAllowedValues;
    if ((mode & 0x2U) != 0 && !allowed.empty() && !value.empty()) {
        std::string picked =
            *std::next(allowed.begin(), static_cast<uint8_t>(value[0]) % allowed.size());
        for (size_t k = 0; k < picked.size() && k + 1 < value.size(); ++k) {
            if ((value[k + 1] & 0x1) != 0) {
                picked[k] = static_cast<char>(std::toupper(static_cast<unsigned char>(picked[k])));
            }
        }
        value = picked;
    }
    return abbreviation + "=" + value;
}

// Adds to accepted (full name to value) what the generator takes from argument: a known
// abbreviation with a non-empty value, an allowed one if the row lists any (matched ignoring
// ASCII case, written in the row's spelling); the first value per row wins.
void accept(const std::string& argument, const Vocabulary& vocabulary,
            std::map<std::string, std::string>& accepted) {
    const size_t equal = argument.find('=');
    const auto row = vocabulary.find(argument.substr(0, equal));
    if (equal == std::string::npos || equal + 1 == argument.size() || row == vocabulary.end()) {
        return;
    }
    const std::string value = argument.substr(equal + 1);
    const std::list<std::string>& allowed = row->second.listAllowedValues;
    const auto match = std::find_if(allowed.begin(), allowed.end(), [&value](const auto& text) {
        return text.size() == value.size() && ::strcasecmp(text.c_str(), value.c_str()) == 0;
    });
    if (allowed.empty() || match != allowed.end()) {
        accepted.emplace(row->second.tstrFullName, allowed.empty() ? value : *match);
    }
}

// The record a fresh manager loads from a document holding these settings.
LocalQNPolicyInfo expectedRecord(const std::map<std::string, std::string>& settings) {
    static const std::map<std::string, uint32_t> kExcludeMasks = {
        {"ExcludeFirefoxNSSCertStore", LocalQNPolicyInfo::kFirefoxNSSCertStoreMask},
        {"ExcludePemFileCertStore", LocalQNPolicyInfo::kPemFileCertStoreMask},
        {"ExcludeMacNativeCertStore", LocalQNPolicyInfo::kMacNativeCertStoreMask},
        {"ExcludeWinNativeCertStore", LocalQNPolicyInfo::kWinNativeCertStoreMask},
    };
    static const std::map<std::string, RestrictPrefCachingOption> kCachingTexts = [] {
        std::map<std::string, RestrictPrefCachingOption> texts;
        for (const auto& [option, text] : sg_restrictPrefCachingOptionToStrMap) {
            texts.emplace(text, option);
        }
        return texts;
    }();
    LocalQNPolicyInfo info;
    info.QNVersion(QN_CLIENT_VERSION);
    for (const auto& setting : settings) {
        const std::string& name = setting.first;
        const std::string& value = setting.second;
        const auto flag =
            std::find_if(std::begin(qntest::kPolicyFlags), std::end(qntest::kPolicyFlags),
                         [&name](const auto& f) { return name == f.element; });
        if (flag != std::end(qntest::kPolicyFlags)) {
            (info.*(flag->set))(value == "true");
        } else if (kExcludeMasks.count(name) != 0 && value == "true") {
            info.ExcludeCertStores(kExcludeMasks.at(name));
        } else if (name == "RestrictPreferenceCaching") {
            // An unknown token counts as "false", which clears the list and ends it.
            for (const std::string& token : nonEmptyPieces(value, ",")) {
                const auto found = kCachingTexts.find(token);
                info.RestrictPrefCaching(
                    found != kCachingTexts.end() ? found->second : RESTRICT_PREF_CACHING_FALSE);
                if (found == kCachingTexts.end() || found->second == RESTRICT_PREF_CACHING_FALSE) {
                    break;
                }
            }
        } else if (name == "AuthorizedServerList") {
            for (const std::string& server : nonEmptyPieces(value, ",;")) {
                info.AddToAuthorizedServerList(server);
            }
        }
        // "RestrictTunnelProtocols" is written as "false", "TLS" or "IPSec": the reader applies
        // only "false", which is the default, so the record never changes.
    }
    return info;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    CAppLog::SetSink([](const CAppLogRecord&) {});
    policyDir();
    // Leaves nothing behind when the fuzzer exits normally (time or run limit reached).
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(policyDir(), ignored);
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool bOverwrite = (data[0] & 0x7U) != 0;
    XmlLocalQNPolMgr generator;
    const Vocabulary vocabulary = generator.GetPolicyTransTable();
    std::vector<std::string> arguments;
    arguments.reserve(kMaxArguments);  // argv points into these strings
    std::vector<char*> argv;
    std::map<std::string, std::string> accepted;
    std::istringstream pieces(std::string(reinterpret_cast<const char*>(data + 1), size - 1));
    for (std::string piece; argv.size() < kMaxArguments && std::getline(pieces, piece, '\0');) {
        if (!piece.empty() && static_cast<uint8_t>(piece[0]) == kNullEntry) {
            argv.push_back(nullptr);
            continue;
        }
        arguments.push_back(argumentFrom(piece, vocabulary));
        argv.push_back(arguments.back().data());
        accept(arguments.back(), vocabulary, accepted);
    }
    const int count = static_cast<int>(argv.size());
    argv.push_back(nullptr);  // as in main's argv; keeps the array non-null when it is empty

    const std::optional<std::string> before = readPolicy();
    const bool bResult = generator.GenerateLocalPolicy(argv.data(), count, bOverwrite);
    check(nothingBesidePolicy());
    if (!bOverwrite && before) {
        check(bResult && readPolicy() == before);
        return 0;
    }
    check(bResult == std::all_of(accepted.begin(), accepted.end(),
                                 [](const auto& setting) { return xmlCanCarry(setting.second); }));
    if (!bResult) {
        check(readPolicy() == before);
        return 0;
    }
    XmlLocalQNPolMgr loader;  // fresh: no FIPS mode retained from an earlier input
    check(loader.LoadLocalQuillnetPolicy() == XMLLOCALQNPOLMGR_SUCCESS);
    check(qntest::summarize(loader.GetLocalPolicyInfo()) ==
          qntest::summarize(expectedRecord(accepted)));
    return 0;
}
