#include "QNCSaxWriter.h"

// Placeholder until the crash-safe writer lands: writeDocument reports "not implemented".
QNCSaxWriter::QNCSaxWriter(const std::string& tstrDirectory, const std::string& tstrFileName,
                           const std::string& tstrRootElement)
    : m_tstrPath(tstrDirectory + tstrFileName), m_tstrRootElement(tstrRootElement) {}
QNCSaxWriter::~QNCSaxWriter() = default;
STATUSCODE QNCSaxWriter::startDocument(TStrPairList* /*pRootAttributes*/) { return QNCSAXWRITER_SUCCESS; }
STATUSCODE QNCSaxWriter::startElement(const std::string& /*tstrName*/, TStrPairList* /*pAttributes*/) { return QNCSAXWRITER_SUCCESS; }
STATUSCODE QNCSaxWriter::characters(const std::string& /*tstrText*/) { return QNCSAXWRITER_SUCCESS; }
STATUSCODE QNCSaxWriter::endElement(const std::string& /*tstrName*/) { return QNCSAXWRITER_SUCCESS; }
STATUSCODE QNCSaxWriter::endDocument() { return QNCSAXWRITER_SUCCESS; }
STATUSCODE QNCSaxWriter::writeDocument() { return QNCSAXWRITER_ERROR_NOT_IMPLEMENTED; }
