// SPDX-License-Identifier: Apache-2.0
// policy_bench measures LoadLocalQuillnetPolicy against the least-work loop over the same policy
// documents, GenerateLocalPolicy against loading its result back, and the peak memory of a
// load.
//
//   policy_bench [benchmark flags]   timings, then a summary: load/loop ratio per document
//                                    and growth from 1,000 to 10,000 to 100,000 servers;
//                                    repetitions are interleaved in random order by default
//   policy_bench --memory            peak resident memory of one load per document, each in a
//                                    fresh process
//   policy_bench --write-documents DIR  the typical, 10,000- and 100,000-server documents
//   policy_bench --count load|loop RUNS DIR  RUNS loads, or RUNS runs of the least-work loop, of
//                                    DIR's document, for callgrind to count
//
// Generation writes 100,000 authorized servers, once into a directory on /dev/shm (memory: the
// cost of building and writing the document) and once into a disk-backed temporary directory
// (the crash-safe write's fsyncs included); each is paired with loading the same file back.
//
// The log sink is silenced for both sides. The least-work loop (leastWorkLoop below) is what
// any loader must do at least: read the file, let expat parse it, keep each name and the text
// of each leaf.

#include <benchmark/benchmark.h>
#include <expat.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "AppLog.h"
#include "StoragePath.h"
#include "XmlLocalQNPolMgr.h"

extern char** environ;

namespace {

constexpr char kPolicyFileName[] = "QuillnetLocalPolicy.xml";

// The document sizes measured: 0 stands for the typical policy (about 2 KB, five servers).
constexpr int64_t kTypical = 0;
const int64_t kServerCounts[] = {kTypical, 1000, 10000, 100000};

// The largest document again, with this much white space after every server: a document
// twenty times larger with the same record.
constexpr size_t kPaddingPerServer = 1024;

// The documents, one directory each, below a temporary directory removed at exit.
class DocumentSet {
  public:
    DocumentSet() {
        std::string pattern = (std::filesystem::temp_directory_path() / "qnbench-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::perror("mkdtemp");
            std::exit(1);
        }
        m_root = pattern + "/";
    }
    ~DocumentSet() {
        std::error_code ignored;
        std::filesystem::remove_all(m_root, ignored);
    }
    DocumentSet(const DocumentSet&) = delete;
    DocumentSet& operator=(const DocumentSet&) = delete;

    // The directory holding the document with this many servers (written on first use).
    const std::string& directory(int64_t servers, size_t padding = 0) {
        const std::string key = std::to_string(servers) + "-" + std::to_string(padding);
        auto found = m_dirs.find(key);
        if (found == m_dirs.end()) {
            const std::string dir = m_root + key + "/";
            std::filesystem::create_directory(dir);
            write(dir + kPolicyFileName, servers, padding);
            found = m_dirs.emplace(key, dir).first;
        }
        return found->second;
    }

    static size_t serverCount(int64_t servers) {
        return servers == kTypical ? 5 : static_cast<size_t>(servers);
    }

  private:
    // A complete policy as generation writes it, streamed to disk without building it in
    // memory.
    static void write(const std::string& path, int64_t servers, size_t padding) {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<QuillnetLocalPolicy xmlns=\"http://schemas.xmlsoap.org/soap/encoding/\" "
               "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
               "xsi:schemaLocation=\"http://schemas.xmlsoap.org/soap/encoding/ "
               "QuillnetLocalPolicy.xsd\" qnversion=\"5.1.8.105\">\n";
        const char* const settings[][2] = {
            {"BypassDefaultLocalization", "false"},
            {"BypassDownloader", "true"},
            {"EnableCRLCheck", "true"},
            {"ExcludeFirefoxNSSCertStore", "false"},
            {"ExcludeMacNativeCertStore", "true"},
            {"ExcludePemFileCertStore", "false"},
            {"ExcludeWinNativeCertStore", "true"},
            {"FipsMode", "true"},
            {"OCSPRevocation", "true"},
            {"RestrictHelpWebDeploy", "true"},
            {"RestrictLocalizationWebDeploy", "true"},
            {"RestrictPreferenceCaching", "Credentials,Thumbprints"},
            {"RestrictResourceWebDeploy", "true"},
            {"RestrictScriptWebDeploy", "true"},
            {"RestrictServerCertStore", "false"},
            {"RestrictTunnelProtocols", "false"},
            {"RestrictWebLaunch", "true"},
            {"StrictCertificateTrust", "true"},
        };
        for (const auto& setting : settings) {
            out << "    <" << setting[0] << ">" << setting[1] << "</" << setting[0] << ">\n";
        }
        out << "    <UpdatePolicy>\n";
        const char* const updates[] = {
            "AllowComplianceModuleUpdatesFromAnyServer",
            "AllowHelpUpdatesFromAnyServer",
            "AllowLocalizationUpdatesFromAnyServer",
            "AllowManagementVPNProfileUpdatesFromAnyServer",
            "AllowPlexoProfileUpdatesFromAnyServer",
            "AllowResourceUpdatesFromAnyServer",
            "AllowScriptUpdatesFromAnyServer",
            "AllowServiceProfileUpdatesFromAnyServer",
            "AllowSoftwareUpdatesFromAnyServer",
            "AllowVPNProfileUpdatesFromAnyServer",
        };
        for (const char* update : updates) {
            out << "        <" << update << ">false</" << update << ">\n";
        }
        out << "        <AuthorizedServerList>\n";
        const std::string pad(padding, ' ');
        char name[64];
        for (size_t i = 0; i < serverCount(servers); ++i) {
            std::snprintf(name, sizeof name, "vpn-gateway-%06zu.example.com", i);
            out << "            <ServerName>" << name << "</ServerName>\n" << pad;
        }
        out << "        </AuthorizedServerList>\n    </UpdatePolicy>\n</QuillnetLocalPolicy>\n";
    }

    std::string m_root;
    std::map<std::string, std::string> m_dirs;
};

// The process's documents, written on first use and removed at exit.
DocumentSet& documents() {
    static DocumentSet set;
    return set;
}

// The manager and the installation-path service registered on one document's directory.
class LoaderScope {
  public:
    explicit LoaderScope(const std::string& dir) {
        CStoragePath::createSingletonInstance(m_pStoragePath, dir);
        XmlLocalQNPolMgr::createSingletonInstance(m_pMgr);
    }
    ~LoaderScope() {
        if (m_pMgr != nullptr) {
            m_pMgr->releaseInstance();
        }
        if (m_pStoragePath != nullptr) {
            m_pStoragePath->releaseInstance();
        }
    }
    LoaderScope(const LoaderScope&) = delete;
    LoaderScope& operator=(const LoaderScope&) = delete;
    XmlLocalQNPolMgr* manager() const { return m_pMgr; }

  private:
    CStoragePath* m_pStoragePath = nullptr;
    XmlLocalQNPolMgr* m_pMgr = nullptr;
};

void BM_LoadLocalQuillnetPolicy(benchmark::State& state) {
    LoaderScope scope(documents().directory(state.range(0)));
    XmlLocalQNPolMgr* pMgr = scope.manager();
    if (pMgr == nullptr) {
        state.SkipWithError("manager could not be created");
        return;
    }
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(pMgr->LoadLocalQuillnetPolicy());
    }
    if (pMgr->GetLocalPolicyInfo().GetAuthorizedServerList().size() !=
        DocumentSet::serverCount(state.range(0))) {
        state.SkipWithError("the load did not read every server");
    }
}

// The least-work loop, the yardstick of a load: expat reads the file in 64 KiB pieces into
// XML_GetBuffer; the start handler copies the element name and each attribute name and value
// into reused strings and clears the text; the character-data handler appends to one reused
// string; the end handler hands the leaf's text on (reads its size) and clears it. Nothing
// else: no list of servers, no record.
struct LoopState {
    std::string name;
    std::string attributeName;
    std::string attributeValue;
    std::string text;
    size_t handedOn = 0;  // the sizes of the texts handed on
};

void XMLCALL loopStart(void* userData, const XML_Char* name, const XML_Char** atts) {
    auto* s = static_cast<LoopState*>(userData);
    s->name.assign(name);
    for (const XML_Char** att = atts; att[0] != nullptr; att += 2) {
        s->attributeName.assign(att[0]);
        s->attributeValue.assign(att[1]);
    }
    s->text.clear();
}

void XMLCALL loopEnd(void* userData, const XML_Char* /*name*/) {
    auto* s = static_cast<LoopState*>(userData);
    s->handedOn += s->text.size();
    s->text.clear();
}

void XMLCALL loopText(void* userData, const XML_Char* text, int length) {
    static_cast<LoopState*>(userData)->text.append(text, static_cast<size_t>(length));
}

// One run of the loop over path; the bytes of text handed on, or 0 when the parse failed.
size_t leastWorkLoop(const std::string& path) {
    LoopState state;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &state);
    XML_SetElementHandler(parser, loopStart, loopEnd);
    XML_SetCharacterDataHandler(parser, loopText);
    constexpr int kPiece = 64 * 1024;
    bool ok = fd >= 0;
    while (ok) {
        void* buffer = XML_GetBuffer(parser, kPiece);
        const ssize_t got = ::read(fd, buffer, kPiece);
        ok = got >= 0 && XML_ParseBuffer(parser, static_cast<int>(got), got == 0) == XML_STATUS_OK;
        if (got == 0) {
            break;
        }
    }
    XML_ParserFree(parser);
    if (fd >= 0) {
        ::close(fd);
    }
    return ok ? state.handedOn : 0;
}

void BM_LeastWorkLoop(benchmark::State& state) {
    const std::string path = documents().directory(state.range(0)) + kPolicyFileName;
    size_t handedOn = 0;
    while (state.KeepRunning()) {
        handedOn = leastWorkLoop(path);
        benchmark::DoNotOptimize(handedOn);
    }
    if (handedOn == 0) {
        state.SkipWithError("the loop could not parse the document");
    }
}

// Generation of a policy with kGeneratedServers authorized servers, and the load of the file
// it produced, in a memory-backed and in a disk-backed directory.
constexpr size_t kGeneratedServers = 100000;
enum GenerationPlace : int64_t { GENERATE_IN_MEMORY = 0, GENERATE_ON_DISK = 1 };

// The two directories, created on first use and removed at exit.
class GenerationDirs {
  public:
    GenerationDirs()
        : m_memory(makeDir("/dev/shm")),
          m_disk(makeDir(std::filesystem::temp_directory_path().string())) {}
    ~GenerationDirs() {
        std::error_code ignored;
        for (const std::string* dir : {&m_memory, &m_disk}) {
            if (!dir->empty()) {
                std::filesystem::remove_all(*dir, ignored);
            }
        }
    }
    GenerationDirs(const GenerationDirs&) = delete;
    GenerationDirs& operator=(const GenerationDirs&) = delete;

    // The directory (with its trailing separator), or empty when it could not be created.
    const std::string& directory(int64_t place) const {
        return place == GENERATE_IN_MEMORY ? m_memory : m_disk;
    }

  private:
    static std::string makeDir(const std::string& parent) {
        std::string pattern = parent + "/qnbench-gen-XXXXXX";
        return ::mkdtemp(pattern.data()) != nullptr ? pattern + "/" : std::string();
    }

    std::string m_memory;
    std::string m_disk;
};

GenerationDirs& generationDirs() {
    static GenerationDirs dirs;
    return dirs;
}

// The installer argument "upal=<servers>", separated by "," and ";" alternately.
std::string& serverListArgument() {
    static std::string argument = [] {
        std::string text = "upal=";
        char name[64];
        for (size_t i = 0; i < kGeneratedServers; ++i) {
            std::snprintf(name, sizeof name, "vpn-gateway-%06zu.example.com%c", i,
                          i % 2 == 0 ? ',' : ';');
            text += name;
        }
        return text;
    }();
    return argument;
}

bool generate(XmlLocalQNPolMgr* pMgr) {
    char* args[] = {serverListArgument().data()};
    return pMgr->GenerateLocalPolicy(args, 1, true);
}

void BM_GeneratePolicy(benchmark::State& state) {
    const std::string& dir = generationDirs().directory(state.range(0));
    if (dir.empty()) {
        state.SkipWithError("directory could not be created");
        return;
    }
    LoaderScope scope(dir);
    serverListArgument();  // built before timing
    bool bOk = true;
    while (state.KeepRunning()) {
        bOk = generate(scope.manager()) && bOk;
    }
    if (!bOk) {
        state.SkipWithError("generation failed");
    }
}

void BM_LoadGeneratedPolicy(benchmark::State& state) {
    const std::string& dir = generationDirs().directory(state.range(0));
    if (dir.empty()) {
        state.SkipWithError("directory could not be created");
        return;
    }
    LoaderScope scope(dir);
    if (!generate(scope.manager())) {
        state.SkipWithError("generation failed");
        return;
    }
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(scope.manager()->LoadLocalQuillnetPolicy());
    }
    if (scope.manager()->GetLocalPolicyInfo().GetAuthorizedServerList().size() !=
        kGeneratedServers) {
        state.SkipWithError("the load did not read every generated server");
    }
}

// Each benchmark is repeated and judged by its fastest repetition: on a shared machine other
// processes only ever add time, so the minimum is the most faithful figure.
void configure(benchmark::internal::Benchmark* b) {
    for (const int64_t servers : kServerCounts) {
        b->Arg(servers);
    }
    b->Unit(benchmark::kMicrosecond)
        ->Repetitions(10)
        ->ReportAggregatesOnly(true)
        ->ComputeStatistics("min", [](const std::vector<double>& values) {
            return *std::min_element(values.begin(), values.end());
        });
}

void configureGeneration(benchmark::internal::Benchmark* b) {
    b->Arg(GENERATE_IN_MEMORY)
        ->Arg(GENERATE_ON_DISK)
        ->Unit(benchmark::kMillisecond)
        ->Repetitions(5)
        ->ReportAggregatesOnly(true)
        ->ComputeStatistics("min", [](const std::vector<double>& values) {
            return *std::min_element(values.begin(), values.end());
        });
}

BENCHMARK(BM_LoadLocalQuillnetPolicy)->Apply(configure);
BENCHMARK(BM_LeastWorkLoop)->Apply(configure);
BENCHMARK(BM_GeneratePolicy)->Apply(configureGeneration);
BENCHMARK(BM_LoadGeneratedPolicy)->Apply(configureGeneration);

// Prints the usual console output and keeps each benchmark's fastest repetition for the
// summary. The targets are judged on CPU time: on a shared machine the wall-clock time also
// counts the time the benchmark waited for a core. Wall-clock ratios are printed beside them.
class SummaryReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "min") {
                m_fastest[run.run_name.function_name][std::atoll(run.run_name.args.c_str())] = {
                    run.GetAdjustedCPUTime(), run.GetAdjustedRealTime()};
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // The ratio of the loader to the least-work loop per document, and the growth of each from
    // one document size to the next; false when a target is missed.
    bool printSummary() const {
        const auto load = m_fastest.find("BM_LoadLocalQuillnetPolicy");
        const auto loop = m_fastest.find("BM_LeastWorkLoop");
        if (load == m_fastest.end() || loop == m_fastest.end() ||
            load->second.size() != std::size(kServerCounts) ||
            loop->second.size() != std::size(kServerCounts)) {
            return true;  // a filtered run: nothing to compare
        }
        bool bOk = true;
        std::printf(
            "\nfastest repetition, CPU time (wall-clock ratio beside)\n%-10s %12s %12s %8s %8s\n",
            "servers", "load (us)", "loop (us)", "ratio", "(wall)");
        for (const int64_t servers : kServerCounts) {
            const Times& l = load->second.at(servers);
            const Times& b = loop->second.at(servers);
            const double ratio = l.cpu / b.cpu;
            bOk = bOk && ratio <= kMaxRatio;
            std::printf("%-10s %12.1f %12.1f %8.3f %8.3f%s\n",
                        servers == kTypical ? "typical" : std::to_string(servers).c_str(), l.cpu,
                        b.cpu, ratio, l.real / b.real, ratio <= kMaxRatio ? "" : "  MISSED");
        }
        for (const int64_t servers : {int64_t{1000}, int64_t{10000}}) {
            const double loadGrowth =
                load->second.at(servers * 10).cpu / load->second.at(servers).cpu;
            const double loopGrowth =
                loop->second.at(servers * 10).cpu / loop->second.at(servers).cpu;
            bOk = bOk && loadGrowth <= kMaxGrowth;
            std::printf("growth %lld -> %lld servers: load x%.2f, loop x%.2f%s\n",
                        static_cast<long long>(servers), static_cast<long long>(servers) * 10,
                        loadGrowth, loopGrowth, loadGrowth <= kMaxGrowth ? "" : "  MISSED");
        }
        std::printf("%s\n", bOk ? "all targets met" : "TARGET MISSED");
        return bOk;
    }

    // Generation against loading its result, per place; false when the in-memory pair misses
    // its target. The disk pair is reported, not judged: its fsyncs wait for the device, which
    // is wall-clock time that a load does not have.
    bool printGenerationSummary() const {
        const auto gen = m_fastest.find("BM_GeneratePolicy");
        const auto load = m_fastest.find("BM_LoadGeneratedPolicy");
        if (gen == m_fastest.end() || load == m_fastest.end() || gen->second.size() != 2 ||
            load->second.size() != 2) {
            return true;  // a filtered run: nothing to compare
        }
        std::printf(
            "\ngenerate vs load back, %zu servers, fastest repetition\n"
            "%-8s %14s %14s %14s %14s %8s %8s\n",
            kGeneratedServers, "place", "gen cpu (ms)", "load cpu (ms)", "gen wall (ms)",
            "load wall (ms)", "cpu x", "wall x");
        bool bOk = true;
        for (const int64_t place : {int64_t{GENERATE_IN_MEMORY}, int64_t{GENERATE_ON_DISK}}) {
            const Times& g = gen->second.at(place);
            const Times& l = load->second.at(place);
            const double ratio = g.cpu / l.cpu;
            const bool bJudged = place == GENERATE_IN_MEMORY;
            bOk = bOk && (!bJudged || ratio <= kMaxGenerationRatio);
            std::printf("%-8s %14.2f %14.2f %14.2f %14.2f %8.2f %8.2f%s\n",
                        bJudged ? "memory" : "disk", g.cpu, l.cpu, g.real, l.real, ratio,
                        g.real / l.real,
                        !bJudged                       ? "  (reported)"
                        : ratio <= kMaxGenerationRatio ? ""
                                                       : "  MISSED");
        }
        std::printf("%s\n", bOk ? "generation target met" : "GENERATION TARGET MISSED");
        return bOk;
    }

  private:
    static constexpr double kMaxRatio = 1.3;            // load time / least-work loop time
    static constexpr double kMaxGenerationRatio = 2.0;  // generation time / load-back time
    static constexpr double kMaxGrowth = 11.0;          // time for 10x the servers / time

    struct Times {
        double cpu = 0;
        double real = 0;
    };
    std::map<std::string, std::map<int64_t, Times>> m_fastest;
};

long maxRssKiB() {
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// In a fresh process: the peak resident memory before and after one load of dir's policy.
int memoryChild(const std::string& dir) {
    LoaderScope scope(dir);
    const long before = maxRssKiB();
    const STATUSCODE status = scope.manager()->LoadLocalQuillnetPolicy();
    const long after = maxRssKiB();
    std::printf("%ld %ld %zu\n", before, after,
                scope.manager()->GetLocalPolicyInfo().GetAuthorizedServerList().size());
    return status == XMLLOCALQNPOLMGR_SUCCESS ? 0 : 1;
}

// Runs memoryChild for every document and prints one line per document.
int memoryReport(const char* self) {
    std::printf("%-22s %14s %9s %16s\n", "document", "bytes", "servers", "peak growth (KiB)");
    struct Doc {
        int64_t servers;
        size_t padding;
    };
    const Doc docs[] = {
        {kTypical, 0}, {1000, 0}, {10000, 0}, {100000, 0}, {100000, kPaddingPerServer}};
    for (const Doc& doc : docs) {
        const std::string& dir = documents().directory(doc.servers, doc.padding);
        const std::string out = dir + "rss.txt";
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
        std::vector<std::string> args = {self, "--memory-child", dir};
        std::vector<char*> argv;
        argv.reserve(args.size() + 1);
        for (std::string& arg : args) {
            argv.push_back(arg.data());
        }
        argv.push_back(nullptr);
        pid_t pid = 0;
        int status = 0;
        if (posix_spawn(&pid, self, &actions, nullptr, argv.data(), environ) != 0 ||
            ::waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            std::fprintf(stderr, "memory measurement failed for %s\n", dir.c_str());
            return 1;
        }
        posix_spawn_file_actions_destroy(&actions);
        long before = 0;
        long after = 0;
        size_t servers = 0;
        std::ifstream(out) >> before >> after >> servers;
        const std::string label = std::string(doc.servers == kTypical ? "typical" : "servers ") +
                                  (doc.servers == kTypical ? "" : std::to_string(doc.servers)) +
                                  (doc.padding != 0 ? " padded" : "");
        std::printf("%-22s %14ju %9zu %16ld\n", label.c_str(),
                    static_cast<uintmax_t>(std::filesystem::file_size(dir + kPolicyFileName)),
                    servers, after - before);
    }
    return 0;
}

// policy_bench --write-documents DIR: the typical policy and those of 10,000 and 100,000
// servers, as DIR/typical/, DIR/10000/ and DIR/100000/, each holding QuillnetLocalPolicy.xml.
int writeDocuments(const std::string& root) {
    for (const int64_t servers : {kTypical, int64_t{10000}, int64_t{100000}}) {
        const std::string dir =
            root + "/" + (servers == kTypical ? std::string("typical") : std::to_string(servers));
        std::error_code error;
        std::filesystem::create_directories(dir, error);
        std::filesystem::copy_file(documents().directory(servers) + kPolicyFileName,
                                   dir + "/" + kPolicyFileName,
                                   std::filesystem::copy_options::overwrite_existing, error);
        if (error) {
            std::fprintf(stderr, "cannot write %s: %s\n", dir.c_str(), error.message().c_str());
            return 1;
        }
    }
    return 0;
}

// policy_bench --count load|loop RUNS DIR: RUNS loads of DIR's policy through
// LoadLocalQuillnetPolicy by one manager, or RUNS runs of the least-work loop over it. Counted
// whole by callgrind (scripts/bench-instructions.sh), the difference between two runs and one
// is the cost of one: for a load, resetting and freeing the previous record included.
int countRuns(const std::string& side, int runs, const std::string& dir) {
    const std::string directory = dir.back() == '/' ? dir : dir + "/";
    if (side == "loop") {
        for (int run = 0; run < runs; ++run) {
            if (leastWorkLoop(directory + kPolicyFileName) == 0) {
                return 1;
            }
        }
        return 0;
    }
    LoaderScope scope(directory);
    for (int run = 0; run < runs; ++run) {
        if (scope.manager() == nullptr || scope.manager()->LoadLocalQuillnetPolicy() != 0) {
            return 1;
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CAppLog::SetSink([](const CAppLogRecord&) {});
    if (argc == 3 && std::strcmp(argv[1], "--memory-child") == 0) {
        return memoryChild(argv[2]);
    }
    if (argc == 5 && std::strcmp(argv[1], "--count") == 0) {
        return countRuns(argv[2], std::atoi(argv[3]), argv[4]);
    }
    if (argc == 3 && std::strcmp(argv[1], "--write-documents") == 0) {
        return writeDocuments(argv[2]);
    }
    if (argc == 2 && std::strcmp(argv[1], "--memory") == 0) {
        return memoryReport("/proc/self/exe");
    }
    // Repetitions of the two sides are interleaved in random order unless the command line
    // says otherwise, so that a busy neighbour slows both sides alike.
    std::vector<char*> args(argv, argv + argc);
    std::string interleave = "--benchmark_enable_random_interleaving=true";
    if (std::none_of(args.begin(), args.end(), [](const char* arg) {
            return std::strncmp(arg, "--benchmark_enable_random_interleaving", 38) == 0;
        })) {
        args.insert(args.begin() + 1, interleave.data());
    }
    int count = static_cast<int>(args.size());
    args.push_back(nullptr);
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) {
        return 1;
    }
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    const bool bLoadTargetsMet = reporter.printSummary();
    const bool bGenerationTargetMet = reporter.printGenerationSummary();
    return bLoadTargetsMet && bGenerationTargetMet ? 0 : 1;
}
