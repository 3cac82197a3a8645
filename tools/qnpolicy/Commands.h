#ifndef QNPOLICY_COMMANDS_H
#define QNPOLICY_COMMANDS_H

#include <ostream>
#include <string>
#include <vector>

// The four subcommands of qnpolicy. Each registers the module's services on installDir (see
// CToolSession), writes its result to out and its own messages to err (the module's log
// records go to standard error through CAppLog), and returns the exit status (ExitCodes.h).
namespace qnpolicy::tool {

// Writes the policy file from "policy_abbreviation=value" arguments, as given.
int RunGenerate(const std::string& installDir, const std::vector<std::string>& policyArgs,
                bool bOverwrite, std::ostream& out, std::ostream& err);

// Loads the policy file and prints the effective policy, as text or as one JSON object.
int RunShow(const std::string& installDir, bool bJson, std::ostream& out, std::ostream& err);

// Lints file, or the policy file of installDir when file is empty.
int RunCheck(const std::string& installDir, const std::string& file, bool bJson, std::ostream& out,
             std::ostream& err);

// Prints the vocabulary of installer abbreviations.
int RunVocabulary(const std::string& installDir, bool bJson, std::ostream& out, std::ostream& err);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_COMMANDS_H
