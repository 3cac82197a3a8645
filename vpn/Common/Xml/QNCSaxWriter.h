#ifndef QNCSAXWRITER_H
#define QNCSAXWRITER_H

#include <string>

#include "GenDefs.h"
#include "GlobalStatuscodes.h"
#include "TstringPairList.h"

// Status codes of the XML writer (block 0xA2).
enum QNCSAXWRITER_ERRORS : STATUSCODE {
    QNCSAXWRITER_SUCCESS = 0,
    QNCSAXWRITER_NOTERROR_BASEVALUE = STATUSCODE_BLOCK_BASE(0xA2),
    QNCSAXWRITER_ERROR_NOT_IMPLEMENTED = QNCSAXWRITER_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_NOT_IMPLEMENTED,
};

// QNCSaxWriter builds one XML document from start, text and end calls and stores it in one
// file (the directory immediately followed by the file name).
class QNCSaxWriter {
public:
    QNCSaxWriter(const std::string& tstrDirectory, const std::string& tstrFileName,
                 const std::string& tstrRootElement);
    virtual ~QNCSaxWriter();
    QNCSaxWriter(const QNCSaxWriter&) = delete;
    QNCSaxWriter& operator=(const QNCSaxWriter&) = delete;

    virtual STATUSCODE startDocument(TStrPairList* pRootAttributes);
    virtual STATUSCODE startElement(const std::string& tstrName, TStrPairList* pAttributes);
    virtual STATUSCODE characters(const std::string& tstrText);
    virtual STATUSCODE endElement(const std::string& tstrName);
    virtual STATUSCODE endDocument();
    virtual STATUSCODE writeDocument();

private:
    std::string m_tstrPath;
    std::string m_tstrRootElement;
};

#endif  // QNCSAXWRITER_H
