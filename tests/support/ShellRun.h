// SPDX-License-Identifier: Apache-2.0
#ifndef QN_TESTS_SHELLRUN_H
#define QN_TESTS_SHELLRUN_H

// One shell script run to its end, as the tool's end-to-end suites run qnpolicy: Q names the
// built binary (exported, so that editors and scripts the run starts find it too), standard
// input is empty unless the script redirects it. Every JSON object a run prints with --json is
// validated, when the suite ends, against the JSON Schema the build publishes for its
// subcommand (the subcommands without one print none).

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "TestSupport.h"

namespace qntest {

// Every output of a run with --json, by subcommand, validated when the suite ends.
inline std::vector<std::pair<std::string, std::string>>& jsonOutputs() {
    static std::vector<std::pair<std::string, std::string>> outputs;
    return outputs;
}

struct ShellRun {
    // exports is prepended as it is, for example "D='/tmp/x/'; export D; ".
    explicit ShellRun(const std::string& script, const std::string& exports = "") {
        const TempDir capture;
        const std::string shell = "sh -c '" +
                                  quoted("export Q='" QNPOLICY_BINARY "'; " + exports + script) +
                                  "' >" + capture.path() + "o 2>" + capture.path() + "e </dev/null";
        status = WEXITSTATUS(std::system(shell.c_str()));
        out = readFile(capture.path() + "o");
        err = readFile(capture.path() + "e");
        keepJson(script);
    }
    bool has(const std::string& part) const { return (out + err).find(part) != std::string::npos; }
    nlohmann::json json() const { return nlohmann::json::parse(out); }
    // text with each ' written so that it survives inside single quotes.
    static std::string quoted(const std::string& text) {
        std::string escaped;
        for (const char c : text) {
            escaped += c == '\'' ? std::string("'\\''") : std::string(1, c);
        }
        return escaped;
    }

    int status;
    std::string out;
    std::string err;

  private:
    // Keeps the output of a --json run whose output reached standard output whole, under its
    // subcommand: the first word for which the build publishes a schema.
    void keepJson(const std::string& script) const {
        std::istringstream split(script);
        bool bJson = false;
        std::string subcommand;
        for (std::string word; split >> word;) {
            bJson = bJson || word == "--json";
            if (subcommand.empty() &&
                std::filesystem::exists(QN_JSON_SCHEMA_DIR "/qnpolicy-" + word + ".schema.json")) {
                subcommand = word;
            }
        }
        if (bJson && !subcommand.empty() && script.find(">/dev/full") == std::string::npos &&
            script.find('|') == std::string::npos) {
            jsonOutputs().emplace_back(subcommand, out);
        }
    }
};

// When the suite ends: every JSON output is exactly one object, valid against its
// subcommand's published schema. One Python process checks them all.
class JsonOutputsAreValid : public ::testing::Environment {
  public:
    void TearDown() override {
        const TempDir dir;
        std::string list;
        for (size_t i = 0; i < jsonOutputs().size(); ++i) {
            const auto& [subcommand, output] = jsonOutputs()[i];
            list += subcommand + " " + dir.write(std::to_string(i) + ".json", output) + "\n";
        }
        dir.write("list", list);
        const std::string script = dir.write("validate.py", R"(
import json, sys
from jsonschema import Draft202012Validator
schemas, failures = {}, 0
for line in open(sys.argv[2]):
    subcommand, path = line.split()
    if subcommand not in schemas:
        schema = json.load(open('%s/qnpolicy-%s.schema.json' % (sys.argv[1], subcommand)))
        Draft202012Validator.check_schema(schema)
        schemas[subcommand] = Draft202012Validator(schema)
    text = open(path).read()
    try:
        document = json.loads(text)
    except ValueError as error:
        print('%s: not one JSON document: %s' % (subcommand, error)); failures += 1; continue
    for error in schemas[subcommand].iter_errors(document):
        print('%s: %s at %s in %s' % (subcommand, error.message, list(error.path), text[:300]))
        failures += 1
print('%d outputs, %d failures' % (len(open(sys.argv[2]).readlines()), failures))
sys.exit(1 if failures else 0)
)");
        const ShellRun run("/usr/bin/python3 " + script + " " QN_JSON_SCHEMA_DIR " " + dir.path() +
                           "list");
        EXPECT_EQ(run.status, 0) << run.out << run.err;
    }
};
inline const auto* const kJsonValidation =
    ::testing::AddGlobalTestEnvironment(new JsonOutputsAreValid());

}  // namespace qntest

#endif  // QN_TESTS_SHELLRUN_H
