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

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "AppLog.h"
#include "LocalQNPolicyInfo.h"
#include "PolicySummary.h"
#include "StoragePath.h"
#include "XmlLocalQNPolMgr.h"

namespace {

using qnfuzz::check;

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

// Leaves nothing behind when the fuzzer exits normally (time or run limit reached). Registered
// after policyDir() has been created, so it runs before the directory's name is destroyed.
void removePolicyDir() {
    ::unlink((policyDir() + kPolicyFileName).c_str());
    ::rmdir(policyDir().c_str());
}

// The file's bytes, and whether it exists.
struct FileState {
    bool bExists = false;
    std::string bytes;
    bool operator==(const FileState& other) const {
        return bExists == other.bExists && bytes == other.bytes;
    }
};

FileState readPolicy() {
    FileState state;
    std::ifstream in(policyDir() + kPolicyFileName, std::ios::binary);
    if (in) {
        state.bExists = true;
        state.bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return state;
}

// The names in the policy directory other than the policy file: always none.
size_t strayEntries() {
    size_t count = 0;
    DIR* dir = ::opendir(policyDir().c_str());
    check(dir != nullptr);
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        count += name != "." && name != ".." && name != kPolicyFileName ? 1 : 0;
    }
    ::closedir(dir);
    return count;
}

// Strict UTF-8 made only of characters of XML 1.0's Char production.
bool xmlCanCarry(const std::string& text) {
    size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        size_t length = 1;
        uint32_t cp = lead;
        uint32_t least = 0;
        if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4, cp = lead & 0x07U, least = 0x10000;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3, cp = lead & 0x0FU, least = 0x800;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2, cp = lead & 0x1FU, least = 0x80;
        } else if (lead >= 0x80) {
            return false;
        }
        if (i + length > text.size()) {
            return false;
        }
        for (size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0U) != 0x80U) {
                return false;
            }
            cp = (cp << 6U) | (next & 0x3FU);
        }
        const bool bChar = cp == 0x9 || cp == 0xA || cp == 0xD || (cp >= 0x20 && cp <= 0xD7FF) ||
                           (cp >= 0xE000 && cp <= 0xFFFD) || (cp >= 0x10000 && cp <= 0x10FFFF);
        if (cp < least || !bChar) {
            return false;
        }
        i += length;
    }
    return true;
}

bool equalsIgnoringAsciiCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

std::vector<std::string> nonEmptyPieces(const std::string& text, const std::string& separators) {
    std::vector<std::string> pieces;
    std::string current;
    for (const char ch : text) {
        if (separators.find(ch) != std::string::npos) {
            if (!current.empty()) {
                pieces.push_back(current);
            }
            current.clear();
        } else {
            current.push_back(ch);
        }
    }
    if (!current.empty()) {
        pieces.push_back(current);
    }
    return pieces;
}

using FlagSetter = void (LocalQNPolicyInfo::*)(bool);

// The record a fresh manager loads from a document holding these settings (full name to value
// as written).
LocalQNPolicyInfo expectedRecord(const std::map<std::string, std::string>& settings) {
    static const std::map<std::string, FlagSetter> flags = {
        {"FipsMode", &LocalQNPolicyInfo::UseFIPSMode},
        {"BypassDownloader", &LocalQNPolicyInfo::BypassDownloader},
        {"BypassDefaultLocalization", &LocalQNPolicyInfo::BypassDefaultLocalization},
        {"RestrictScriptWebDeploy", &LocalQNPolicyInfo::RestrictScriptWebDeploy},
        {"RestrictHelpWebDeploy", &LocalQNPolicyInfo::RestrictHelpWebDeploy},
        {"RestrictResourceWebDeploy", &LocalQNPolicyInfo::RestrictResourceWebDeploy},
        {"RestrictLocalizationWebDeploy", &LocalQNPolicyInfo::RestrictLocalizationWebDeploy},
        {"RestrictWebLaunch", &LocalQNPolicyInfo::RestrictWebLaunchMode},
        {"StrictCertificateTrust", &LocalQNPolicyInfo::StrictCertTrustMode},
        {"EnableCRLCheck", &LocalQNPolicyInfo::EnableCRLCheck},
        {"OCSPRevocation", &LocalQNPolicyInfo::EnableOCSPRevocation},
        {"RestrictServerCertStore", &LocalQNPolicyInfo::SetRestrictServerCertStore},
        {"AllowSoftwareUpdatesFromAnyServer", &LocalQNPolicyInfo::SetSoftwareUpdateLock},
        {"AllowComplianceModuleUpdatesFromAnyServer",
         &LocalQNPolicyInfo::SetComplianceModuleSoftwareUpdateLock},
        {"AllowVPNProfileUpdatesFromAnyServer", &LocalQNPolicyInfo::SetVPNProfileUpdateLock},
        {"AllowManagementVPNProfileUpdatesFromAnyServer",
         &LocalQNPolicyInfo::SetMgmtVPNProfileUpdateLock},
        {"AllowPlexoProfileUpdatesFromAnyServer", &LocalQNPolicyInfo::SetPlexoProfileUpdateLock},
        {"AllowServiceProfileUpdatesFromAnyServer",
         &LocalQNPolicyInfo::SetServiceProfileUpdateLock},
        {"AllowScriptUpdatesFromAnyServer", &LocalQNPolicyInfo::SetScriptUpdateLock},
        {"AllowHelpUpdatesFromAnyServer", &LocalQNPolicyInfo::SetHelpUpdateLock},
        {"AllowResourceUpdatesFromAnyServer", &LocalQNPolicyInfo::SetResourceUpdateLock},
        {"AllowLocalizationUpdatesFromAnyServer", &LocalQNPolicyInfo::SetLocalizationUpdateLock},
    };
    static const std::map<std::string, uint32_t> excludeMasks = {
        {"ExcludeFirefoxNSSCertStore", LocalQNPolicyInfo::kFirefoxNSSCertStoreMask},
        {"ExcludePemFileCertStore", LocalQNPolicyInfo::kPemFileCertStoreMask},
        {"ExcludeMacNativeCertStore", LocalQNPolicyInfo::kMacNativeCertStoreMask},
        {"ExcludeWinNativeCertStore", LocalQNPolicyInfo::kWinNativeCertStoreMask},
    };
    static const std::map<std::string, RestrictPrefCachingOption> cachingTexts = {
        {"false", RESTRICT_PREF_CACHING_FALSE},
        {"Credentials", RESTRICT_PREF_CACHING_CREDENTIALS},
        {"Thumbprints", RESTRICT_PREF_CACHING_THUMBPRINTS},
        {"CredentialsAndThumbprints", RESTRICT_PREF_CACHING_CREDENTIALS_AND_THUMBPRINTS},
        {"AutomaticServerSelection", RESTRICT_PREF_CACHING_AHS},
        {"All", RESTRICT_PREF_CACHING_ALL},
    };

    LocalQNPolicyInfo info;
    info.QNVersion("5.1.8.105");
    for (const auto& [name, value] : settings) {
        if (const auto flag = flags.find(name); flag != flags.end()) {
            (info.*(flag->second))(value == "true");
        } else if (const auto mask = excludeMasks.find(name); mask != excludeMasks.end()) {
            info.ExcludeCertStores(value == "true" ? mask->second : 0);
        } else if (name == "RestrictPreferenceCaching") {
            for (const std::string& token : nonEmptyPieces(value, ",")) {
                const auto found = cachingTexts.find(token);
                const RestrictPrefCachingOption option =
                    found != cachingTexts.end() ? found->second : RESTRICT_PREF_CACHING_FALSE;
                info.RestrictPrefCaching(option);
                if (option == RESTRICT_PREF_CACHING_FALSE) {
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
    std::atexit(removePolicyDir);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool bOverwrite = (data[0] & 0x7U) != 0;
    const std::string input(reinterpret_cast<const char*>(data + 1), size - 1);

    XmlLocalQNPolMgr generator;
    const std::map<std::string, LocalPolicySetting> vocabulary = generator.GetPolicyTransTable();
    std::vector<std::string> abbreviations;
    abbreviations.reserve(vocabulary.size());
    for (const auto& row : vocabulary) {
        abbreviations.push_back(row.first);
    }

    // The arguments, and the settings the oracle expects to be accepted.
    std::vector<std::string> arguments;
    std::vector<bool> bNull;
    std::map<std::string, std::string> accepted;
    std::istringstream pieces(input);
    std::string piece;
    while (arguments.size() < kMaxArguments && std::getline(pieces, piece, '\0')) {
        const uint8_t mode = piece.empty() ? 0 : static_cast<uint8_t>(piece[0]);
        std::string argument = piece.empty() ? piece : piece.substr(1);
        if (mode == kNullEntry) {
            arguments.emplace_back();
            bNull.push_back(true);
            continue;
        }
        if ((mode & 0x1U) != 0 && !argument.empty()) {
            const auto& [abbreviation, row] = *vocabulary.find(
                abbreviations[static_cast<uint8_t>(argument[0]) % abbreviations.size()]);
            std::string value = argument.substr(1);
            if ((mode & 0x2U) != 0 && !row.listAllowedValues.empty() && !value.empty()) {
                auto allowed = row.listAllowedValues.begin();
                std::advance(allowed,
                             static_cast<uint8_t>(value[0]) % row.listAllowedValues.size());
                std::string flipped = *allowed;
                for (size_t k = 0; k < flipped.size(); ++k) {
                    if (k + 1 < value.size() && (value[k + 1] & 0x1) != 0) {
                        flipped[k] =
                            static_cast<char>(std::toupper(static_cast<unsigned char>(flipped[k])));
                    }
                }
                value = flipped;
            }
            argument = abbreviation;
            argument.append("=").append(value);
        }
        arguments.push_back(argument);
        bNull.push_back(false);

        const size_t equal = argument.find('=');
        if (equal == std::string::npos || equal + 1 == argument.size()) {
            continue;
        }
        const auto row = vocabulary.find(argument.substr(0, equal));
        if (row == vocabulary.end()) {
            continue;
        }
        std::string value = argument.substr(equal + 1);
        const std::list<std::string>& allowed = row->second.listAllowedValues;
        if (!allowed.empty()) {
            const auto match = std::find_if(allowed.begin(), allowed.end(),
                                            [&value](const std::string& candidate) {
                                                return equalsIgnoringAsciiCase(candidate, value);
                                            });
            if (match == allowed.end()) {
                continue;
            }
            value = *match;
        }
        accepted.emplace(row->second.tstrFullName, value);
    }

    std::vector<char*> argv;
    for (size_t i = 0; i < arguments.size(); ++i) {
        argv.push_back(bNull[i] ? nullptr : arguments[i].data());
    }
    argv.push_back(nullptr);  // as in main's argv; keeps the array non-null when it is empty
    const FileState before = readPolicy();
    const bool bResult =
        generator.GenerateLocalPolicy(argv.data(), static_cast<int>(arguments.size()), bOverwrite);
    const FileState after = readPolicy();
    check(strayEntries() == 0);

    if (!bOverwrite && before.bExists) {
        check(bResult && after == before);
        return 0;
    }
    const bool bCarriable = std::all_of(accepted.begin(), accepted.end(), [](const auto& setting) {
        return xmlCanCarry(setting.second);
    });
    check(bResult == bCarriable);
    if (!bResult) {
        check(after == before);
        return 0;
    }

    XmlLocalQNPolMgr loader;  // fresh: no FIPS mode retained from an earlier input
    check(loader.LoadLocalQuillnetPolicy() == XMLLOCALQNPOLMGR_SUCCESS);
    check(qnfuzz::summarize(loader.GetLocalPolicyInfo()) ==
          qnfuzz::summarize(expectedRecord(accepted)));
    return 0;
}
