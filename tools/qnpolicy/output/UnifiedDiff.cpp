// SPDX-License-Identifier: Apache-2.0
#include "UnifiedDiff.h"

#include <algorithm>
#include <vector>

namespace qnpolicy::tool {

namespace {

constexpr size_t kContext = 3;
// Line pairs the longest-common-subsequence table may hold (4 bytes each).
constexpr size_t kMaxCells = size_t{1} << 22;
constexpr char kNoNewline[] = "\\ No newline at end of file\n";

struct Line {
    std::string text;  // without its line feed
    bool bTerminated;  // ended by a line feed
    bool operator==(const Line& other) const {
        return text == other.text && bTerminated == other.bTerminated;
    }
};

std::vector<Line> splitLines(const std::string& text) {
    std::vector<Line> lines;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            lines.push_back(Line{text.substr(start), false});
            break;
        }
        lines.push_back(Line{text.substr(start, end - start), true});
        start = end + 1;
    }
    return lines;
}

// One step of the edit script: ' ' keep, '-' remove a line of before, '+' add one of after.
struct Edit {
    char op;
    size_t beforeIndex;
    size_t afterIndex;
};

// The edits of the changed middle [b0, b1) of before against [a0, a1) of after.
void diffMiddle(const std::vector<Line>& before, const std::vector<Line>& after, size_t b0,
                size_t b1, size_t a0, size_t a1, std::vector<Edit>& rEdits) {
    const size_t n = b1 - b0;
    const size_t m = a1 - a0;
    if (n == 0 || m == 0 || n * m > kMaxCells) {
        for (size_t i = b0; i < b1; ++i) {
            rEdits.push_back(Edit{'-', i, a0});
        }
        for (size_t j = a0; j < a1; ++j) {
            rEdits.push_back(Edit{'+', b1, j});
        }
        return;
    }
    // lcs[i][j]: the longest common subsequence of before[b0 + i..] and after[a0 + j..].
    std::vector<uint32_t> lcs((n + 1) * (m + 1), 0);
    const auto at = [m](size_t i, size_t j) { return i * (m + 1) + j; };
    for (size_t i = n; i-- > 0;) {
        for (size_t j = m; j-- > 0;) {
            lcs[at(i, j)] = before[b0 + i] == after[a0 + j]
                                ? lcs[at(i + 1, j + 1)] + 1
                                : std::max(lcs[at(i + 1, j)], lcs[at(i, j + 1)]);
        }
    }
    size_t i = 0;
    size_t j = 0;
    while (i < n || j < m) {
        if (i < n && j < m && before[b0 + i] == after[a0 + j]) {
            rEdits.push_back(Edit{' ', b0 + i, a0 + j});
            ++i;
            ++j;
        } else if (i < n && (j == m || lcs[at(i + 1, j)] >= lcs[at(i, j + 1)])) {
            // Removals before additions, as diff prints them.
            rEdits.push_back(Edit{'-', b0 + i, a0 + j});
            ++i;
        } else {
            rEdits.push_back(Edit{'+', b0 + i, a0 + j});
            ++j;
        }
    }
}

void appendLine(std::string& out, char op, const Line& line) {
    out.push_back(op);
    out += line.text;
    out.push_back('\n');
    if (!line.bTerminated) {
        out += kNoNewline;
    }
}

// "start,count" in diff's convention: an empty range names the line before it, and a
// range of one line is written without its count.
std::string range(size_t first, size_t count) {
    const size_t start = count == 0 ? first : first + 1;
    return count == 1 ? std::to_string(start) : std::to_string(start) + "," + std::to_string(count);
}

}  // namespace

std::string UnifiedDiff(const std::string& before, const std::string& after,
                        const std::string& beforeName, const std::string& afterName) {
    if (before == after) {
        return std::string();
    }
    const std::vector<Line> a = splitLines(before);
    const std::vector<Line> b = splitLines(after);
    size_t head = 0;
    while (head < a.size() && head < b.size() && a[head] == b[head]) {
        ++head;
    }
    size_t tail = 0;
    while (tail < a.size() - head && tail < b.size() - head &&
           a[a.size() - 1 - tail] == b[b.size() - 1 - tail]) {
        ++tail;
    }
    std::vector<Edit> edits;
    for (size_t k = 0; k < head; ++k) {
        edits.push_back(Edit{' ', k, k});
    }
    diffMiddle(a, b, head, a.size() - tail, head, b.size() - tail, edits);
    for (size_t k = tail; k > 0; --k) {
        edits.push_back(Edit{' ', a.size() - k, b.size() - k});
    }

    std::string out = "--- " + beforeName + "\n+++ " + afterName + "\n";
    size_t next = 0;
    while (next < edits.size()) {
        // The next change, and the hunk around it: changes closer than twice the context
        // share one hunk.
        size_t first = next;
        while (first < edits.size() && edits[first].op == ' ') {
            ++first;
        }
        if (first == edits.size()) {
            break;
        }
        const size_t start = first >= kContext ? first - kContext : 0;
        size_t end = first;
        size_t unchangedRun = 0;
        for (size_t k = first; k < edits.size(); ++k) {
            if (edits[k].op == ' ') {
                if (++unchangedRun > 2 * kContext) {
                    break;
                }
            } else {
                unchangedRun = 0;
                end = k + 1;
            }
        }
        const size_t stop = std::min(edits.size(), end + kContext);
        size_t beforeCount = 0;
        size_t afterCount = 0;
        for (size_t k = start; k < stop; ++k) {
            beforeCount += edits[k].op != '+' ? 1 : 0;
            afterCount += edits[k].op != '-' ? 1 : 0;
        }
        out += "@@ -" + range(edits[start].beforeIndex, beforeCount) + " +" +
               range(edits[start].afterIndex, afterCount) + " @@\n";
        for (size_t k = start; k < stop; ++k) {
            const Edit& edit = edits[k];
            appendLine(out, edit.op, edit.op == '+' ? b[edit.afterIndex] : a[edit.beforeIndex]);
        }
        next = stop;
    }
    return out;
}

}  // namespace qnpolicy::tool
