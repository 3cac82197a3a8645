// SPDX-License-Identifier: Apache-2.0
// The XML document writer: builds the document in one buffer, checks every call, and stores
// the result crash-safely.

#include "QNCSaxWriter.h"

#include <cstring>

#include "AppLog.h"
#include "AtomicFileReplace.h"
#include "ErrnoText.h"
#include "XmlWriterSyntax.h"

namespace {

constexpr char kSourceFile[] = "vpn/Common/Xml/QNCSaxWriter";
constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
constexpr size_t kIndentWidth = 4;
constexpr size_t kInitialCapacity = 4096;
// World-readable: every user's client reads the policy; only its owner may change it.
constexpr mode_t kFileMode = 0644;

}  // namespace

QNCSaxWriter::QNCSaxWriter(const std::string& tstrDirectory, const std::string& tstrFileName,
                           const std::string& tstrRootElement)
    : m_tstrDirectory(tstrDirectory),
      m_tstrFileName(tstrFileName),
      m_tstrPath(tstrDirectory + tstrFileName),
      m_tstrRootElement(tstrRootElement),
      m_eState(DOCUMENT_NOT_STARTED),
      m_bStartTagPending(false),
      m_status(QNCSAXWRITER_SUCCESS) {}

QNCSaxWriter::~QNCSaxWriter() = default;

STATUSCODE QNCSaxWriter::startDocument(TStrPairList* pRootAttributes) {
    if (m_status != QNCSAXWRITER_SUCCESS) {
        return m_status;
    }
    if (m_eState != DOCUMENT_NOT_STARTED) {
        return record("startDocument", __LINE__, QNCSAXWRITER_ERROR_CALL_ORDER,
                      "the document was already started");
    }
    m_tstrDocument.reserve(kInitialCapacity);
    m_tstrDocument.append(kDeclaration);
    m_eState = DOCUMENT_OPEN;
    return openElement("startDocument", m_tstrRootElement, pRootAttributes);
}

STATUSCODE QNCSaxWriter::startElement(const std::string& tstrName, TStrPairList* pAttributes) {
    if (m_status != QNCSAXWRITER_SUCCESS) {
        return m_status;
    }
    if (m_eState != DOCUMENT_OPEN) {
        return record("startElement", __LINE__, QNCSAXWRITER_ERROR_CALL_ORDER,
                      "element \"" + tstrName + "\" started outside the root element");
    }
    return openElement("startElement", tstrName, pAttributes);
}

STATUSCODE QNCSaxWriter::characters(const std::string& tstrText) {
    if (m_status != QNCSAXWRITER_SUCCESS) {
        return m_status;
    }
    if (m_eState != DOCUMENT_OPEN) {
        return record("characters", __LINE__, QNCSAXWRITER_ERROR_CALL_ORDER,
                      "text given outside the root element");
    }
    OpenElement& element = m_openElements.back();
    const size_t badOffset = qnxml::findInvalidXmlText(tstrText);
    if (badOffset != std::string::npos) {
        return record("characters", __LINE__, QNCSAXWRITER_ERROR_INVALID_TEXT,
                      "the text of element \"" + element.tstrName +
                          "\" is not UTF-8 made of XML characters at byte " +
                          std::to_string(badOffset));
    }
    if (element.bHasChildren) {
        return record("characters", __LINE__, QNCSAXWRITER_ERROR_CALL_ORDER,
                      "text given after the child elements of \"" + element.tstrName + "\"");
    }
    if (tstrText.empty()) {
        return QNCSAXWRITER_SUCCESS;
    }
    closeStartTagIfPending();
    qnxml::appendEscapedText(m_tstrDocument, tstrText);
    element.bHasText = true;
    return QNCSAXWRITER_SUCCESS;
}

STATUSCODE QNCSaxWriter::endElement(const std::string& tstrName) {
    if (m_status != QNCSAXWRITER_SUCCESS) {
        return m_status;
    }
    if (m_eState != DOCUMENT_OPEN || m_openElements.size() < 2) {
        return record("endElement", __LINE__, QNCSAXWRITER_ERROR_CALL_ORDER,
                      "end of \"" + tstrName + "\" without an open element below the root");
    }
    if (tstrName != m_openElements.back().tstrName) {
        return record(
            "endElement", __LINE__, QNCSAXWRITER_ERROR_MISMATCHED_END,
            "end of \"" + tstrName + "\" while \"" + m_openElements.back().tstrName + "\" is open");
    }
    closeInnermostElement();
    return QNCSAXWRITER_SUCCESS;
}

STATUSCODE QNCSaxWriter::endDocument() {
    if (m_status != QNCSAXWRITER_SUCCESS) {
        return m_status;
    }
    if (m_eState != DOCUMENT_OPEN) {
        return record("endDocument", __LINE__, QNCSAXWRITER_ERROR_CALL_ORDER,
                      "the document is not open");
    }
    if (m_openElements.size() != 1) {
        return record("endDocument", __LINE__, QNCSAXWRITER_ERROR_CALL_ORDER,
                      "element \"" + m_openElements.back().tstrName + "\" is still open");
    }
    closeInnermostElement();
    m_tstrDocument.push_back('\n');
    m_eState = DOCUMENT_ENDED;
    return QNCSAXWRITER_SUCCESS;
}

STATUSCODE QNCSaxWriter::writeDocument() {
    if (m_status != QNCSAXWRITER_SUCCESS) {
        return m_status;  // logged when it was recorded
    }
    if (m_eState != DOCUMENT_ENDED) {
        return record("writeDocument", __LINE__, QNCSAXWRITER_ERROR_CALL_ORDER,
                      m_eState == DOCUMENT_TAKEN ? "the document was handed out"
                                                 : "the document was not ended");
    }
    return storeDocument(m_tstrDocument);
}

STATUSCODE QNCSaxWriter::takeDocument(std::string& rtstrDocument) {
    if (m_status != QNCSAXWRITER_SUCCESS) {
        return m_status;  // logged when it was recorded
    }
    if (m_eState != DOCUMENT_ENDED) {
        return record("takeDocument", __LINE__, QNCSAXWRITER_ERROR_CALL_ORDER,
                      "the document was not ended");
    }
    rtstrDocument = std::move(m_tstrDocument);
    m_tstrDocument.clear();
    m_eState = DOCUMENT_TAKEN;
    return QNCSAXWRITER_SUCCESS;
}

STATUSCODE QNCSaxWriter::storeDocument(const std::string& tstrDocument) {
    m_pFailedStep = "";
    m_failedError = 0;
    // An empty directory means the caller could not find where the file belongs; writing
    // relative to the working directory would put it where nothing reads it.
    if (m_tstrDirectory.empty()) {
        return fail("writeDocument", __LINE__, QNCSAXWRITER_ERROR_BAD_PARAMETER,
                    "no directory was given");
    }
    const qnfile::ExistingFile existing =
        m_bKeepExisting ? qnfile::EXISTING_KEEP : qnfile::EXISTING_REPLACE;
    const qnfile::ReplaceResult result =
        m_directoryFd >= 0
            ? qnfile::replaceFileAtomicallyAt(m_directoryFd, m_tstrFileName, m_tstrPath,
                                              tstrDocument, kFileMode, existing)
            : qnfile::replaceFileAtomically(m_tstrPath, tstrDocument, kFileMode, existing);
    m_pFailedStep = result.step;
    m_failedError = result.error;
    // None is recorded: a later writeDocument may succeed once the cause is fixed.
    switch (result.outcome) {
        case qnfile::OUTCOME_WRITTEN:
            return QNCSAXWRITER_SUCCESS;
        case qnfile::OUTCOME_KEPT:
            // Not a failure of this writer, so not logged as one: the caller reports it.
            return QNCSAXWRITER_ERROR_FILE_EXISTS;
        case qnfile::OUTCOME_NOT_SYNCED:
            CAppLog::LogDebugMessage(
                "writeDocument", kSourceFile, __LINE__, Logging::DBG_Warning,
                "Replaced XML document %s, but %s failed: %s; the new document may not "
                "survive a crash (status 0x%08lX)",
                m_tstrPath.c_str(), result.step, qnsys::errnoText(result.error).c_str(),
                static_cast<unsigned long>(QNCSAXWRITER_ERROR_NOT_SYNCED));
            return QNCSAXWRITER_ERROR_NOT_SYNCED;
        case qnfile::OUTCOME_FAILED:
            break;
    }
    return fail("writeDocument", __LINE__, QNCSAXWRITER_ERROR_FILE_WRITE,
                std::string(result.step) + " failed: " + qnsys::errnoText(result.error));
}

STATUSCODE QNCSaxWriter::openElement(const char* function, const std::string& tstrName,
                                     const TStrPairList* pAttributes) {
    if (!qnxml::isXmlName(tstrName)) {
        return record(function, __LINE__, QNCSAXWRITER_ERROR_INVALID_NAME,
                      "element name \"" + tstrName + "\" is not an XML name");
    }
    if (pAttributes != nullptr) {
        for (auto it = pAttributes->begin(); it != pAttributes->end(); ++it) {
            if (!qnxml::isXmlName(it->first)) {
                return record(function, __LINE__, QNCSAXWRITER_ERROR_INVALID_NAME,
                              "attribute name \"" + it->first + "\" of \"" + tstrName +
                                  "\" is not an XML name");
            }
            for (auto earlier = pAttributes->begin(); earlier != it; ++earlier) {
                if (earlier->first == it->first) {
                    return record(
                        function, __LINE__, QNCSAXWRITER_ERROR_DUPLICATE_ATTRIBUTE,
                        "attribute \"" + it->first + "\" given twice for \"" + tstrName + "\"");
                }
            }
            const size_t badOffset = qnxml::findInvalidXmlText(it->second);
            if (badOffset != std::string::npos) {
                return record(function, __LINE__, QNCSAXWRITER_ERROR_INVALID_TEXT,
                              "the value of attribute \"" + it->first + "\" of \"" + tstrName +
                                  "\" is not UTF-8 made of XML characters at byte " +
                                  std::to_string(badOffset));
            }
        }
    }
    if (!m_openElements.empty()) {
        OpenElement& parent = m_openElements.back();
        if (parent.bHasText) {
            return record(function, __LINE__, QNCSAXWRITER_ERROR_CALL_ORDER,
                          "element \"" + tstrName + "\" started after the text of \"" +
                              parent.tstrName + "\"");
        }
        parent.bHasChildren = true;
        closeStartTagIfPending();
    }

    m_tstrDocument.push_back('\n');
    m_tstrDocument.append(m_openElements.size() * kIndentWidth, ' ');
    m_tstrDocument.push_back('<');
    m_tstrDocument.append(tstrName);
    if (pAttributes != nullptr) {
        for (const auto& attribute : *pAttributes) {
            m_tstrDocument.push_back(' ');
            m_tstrDocument.append(attribute.first);
            m_tstrDocument.append("=\"");
            qnxml::appendEscapedAttribute(m_tstrDocument, attribute.second);
            m_tstrDocument.push_back('"');
        }
    }
    m_bStartTagPending = true;
    m_openElements.emplace_back();
    m_openElements.back().tstrName = tstrName;
    return QNCSAXWRITER_SUCCESS;
}

void QNCSaxWriter::closeStartTagIfPending() {
    if (m_bStartTagPending) {
        m_tstrDocument.push_back('>');
        m_bStartTagPending = false;
    }
}

void QNCSaxWriter::closeInnermostElement() {
    const OpenElement& element = m_openElements.back();
    if (m_bStartTagPending) {
        m_tstrDocument.append("/>");  // no content: an empty-element tag
        m_bStartTagPending = false;
    } else {
        if (element.bHasChildren) {
            m_tstrDocument.push_back('\n');
            m_tstrDocument.append((m_openElements.size() - 1) * kIndentWidth, ' ');
        }
        m_tstrDocument.append("</");
        m_tstrDocument.append(element.tstrName);
        m_tstrDocument.push_back('>');
    }
    m_openElements.pop_back();
}

STATUSCODE QNCSaxWriter::fail(const char* function, int line, STATUSCODE status,
                              const std::string& tstrReason) const {
    CAppLog::LogDebugMessage(function, kSourceFile, line, Logging::DBG_Error,
                             "Cannot write XML document %s: %s (status 0x%08lX)",
                             m_tstrPath.c_str(), tstrReason.c_str(),
                             static_cast<unsigned long>(status));
    return status;
}

STATUSCODE QNCSaxWriter::record(const char* function, int line, STATUSCODE status,
                                const std::string& tstrReason) {
    m_status = fail(function, line, status, tstrReason);
    return m_status;
}
