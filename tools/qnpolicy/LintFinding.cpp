#include "LintFinding.h"

namespace qnpolicy::tool {

Severity SeverityOf(const std::string& kind) {
    for (const FindingKindInfo& info : kFindingKinds) {
        if (kind == info.kind) {
            return info.eSeverity;
        }
    }
    // Only kinds of the table are ever reported; an unlisted one counts as an error.
    return Severity::ERROR;
}

const char* SeverityText(Severity eSeverity) {
    return eSeverity == Severity::WARNING ? "warning" : "error";
}

}  // namespace qnpolicy::tool
