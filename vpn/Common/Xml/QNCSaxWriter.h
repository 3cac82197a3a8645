// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_QNCSAXWRITER_H
#define QUILLNET_QNCSAXWRITER_H

#include <string>
#include <vector>

#include "GenDefs.h"
#include "GlobalStatuscodes.h"
#include "TstringPairList.h"

// Status codes of the XML writer (block 0xA2).
enum QNCSAXWRITER_ERRORS : STATUSCODE {
    QNCSAXWRITER_SUCCESS = 0,
    QNCSAXWRITER_NOTERROR_BASEVALUE = STATUSCODE_BLOCK_BASE(0xA2),
    QNCSAXWRITER_ERROR_NOT_IMPLEMENTED =
        QNCSAXWRITER_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_NOT_IMPLEMENTED,
    QNCSAXWRITER_ERROR_BAD_PARAMETER =
        QNCSAXWRITER_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_BAD_PARAMETER,
    // The module's own codes. A name that is not an XML name:
    QNCSAXWRITER_ERROR_INVALID_NAME = QNCSAXWRITER_NOTERROR_BASEVALUE + 11,
    // Text or an attribute value that is not strict UTF-8 made of XML characters:
    QNCSAXWRITER_ERROR_INVALID_TEXT = QNCSAXWRITER_NOTERROR_BASEVALUE + 12,
    // The same attribute name twice on one element:
    QNCSAXWRITER_ERROR_DUPLICATE_ATTRIBUTE = QNCSAXWRITER_NOTERROR_BASEVALUE + 13,
    // An end tag that names another element than the one open:
    QNCSAXWRITER_ERROR_MISMATCHED_END = QNCSAXWRITER_NOTERROR_BASEVALUE + 14,
    // A call out of document order, or text and child elements mixed in one element:
    QNCSAXWRITER_ERROR_CALL_ORDER = QNCSAXWRITER_NOTERROR_BASEVALUE + 15,
    // The file could not be stored (the log names the system call and its error); the old
    // file, if any, is untouched:
    QNCSAXWRITER_ERROR_FILE_WRITE = QNCSAXWRITER_NOTERROR_BASEVALUE + 16,
    // The file was replaced by the new document, but the sync of its directory failed, so
    // the replacement may not survive a crash of the machine. Not a rollback case: the
    // file on disk is the new one.
    QNCSAXWRITER_ERROR_NOT_SYNCED = QNCSAXWRITER_NOTERROR_BASEVALUE + 17,
    // keepExistingFile(true) and the file existed when the new one was to take its name
    // (whenever it appeared): the existing file was kept, nothing was written.
    QNCSAXWRITER_ERROR_FILE_EXISTS = QNCSAXWRITER_NOTERROR_BASEVALUE + 18,
    QNCSAXWRITER_ERROR_UNKNOWN = QNCSAXWRITER_NOTERROR_BASEVALUE + 19,
};

// QNCSaxWriter builds one XML document from start, text and end calls and stores it in one
// file (the directory immediately followed by the file name).
//
//   QNCSaxWriter writer(dir, "Policy.xml", "Policy");
//   writer.startDocument(&rootAttributes);
//   writer.startElement("Setting", nullptr);
//   writer.characters("true");
//   writer.endElement("Setting");
//   writer.endDocument();
//   STATUSCODE status = writer.writeDocument();   // 0: the file holds the document
//
// Form: UTF-8 with the declaration <?xml version="1.0" encoding="UTF-8"?>, one element per
// line, four spaces of indentation per level, a leaf's text on its element's line, and an
// element without content as an empty-element tag. Text and attribute values are escaped so
// that a conforming parser gives back exactly the text handed in (see XmlWriterSyntax.h).
//
// Every call is checked: names must be XML names, texts strict UTF-8 made of XML characters,
// end tags must match, and calls must come in document order. An element holds either text
// or child elements, never both, because the indentation around children would otherwise
// become part of its text. The first failure is logged and recorded; later calls then do
// nothing and return it, and writeDocument returns it without touching the disk.
//
// writeDocument replaces the file crash-safely (unnamed temporary file in the same directory,
// fsync, rename, directory fsync; see AtomicFileReplace.h): the file is either the complete
// old one or the complete new one, never a mixture, no temporary file is left after a
// failure, and a killed writer's stray is removed by the next write. The file is a new inode
// with mode 0644 regardless of the umask, no access ACL, and owned by root:root when root
// writes it (by the writer otherwise), whatever the directory would hand down. A path without a
// directory part is refused rather than written relative to the working directory. Outcomes: 0
// written; QNCSAXWRITER_ERROR_FILE_EXISTS kept (keepExistingFile only);
// QNCSAXWRITER_ERROR_NOT_SYNCED replaced but durability not confirmed;
// QNCSAXWRITER_ERROR_FILE_WRITE not written; a refused document's own status.
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

    // With true, writeDocument never replaces an existing file, even one created by another
    // writer while this one was writing: it reports QNCSAXWRITER_ERROR_FILE_EXISTS instead.
    // The default is false: the file is replaced.
    void keepExistingFile(bool bKeep) { m_bKeepExisting = bKeep; }

    // With a descriptor of the directory (readable: O_RDONLY | O_DIRECTORY), writeDocument and
    // storeDocument store through it instead of opening the directory by its name, so that a
    // caller that examined the directory it opened writes into exactly that one. The writer
    // does not own the descriptor; the directory given at construction still names the file
    // in records. The default, -1, opens the directory by name.
    void storeThroughDirectory(int directoryFd) { m_directoryFd = directoryFd; }

    // The ended document's bytes, moved out instead of stored: 0, or the status writeDocument
    // would return without touching the disk (the first failure, or a document not ended).
    // The writer holds no document afterwards.
    STATUSCODE takeDocument(std::string& rtstrDocument);

    // Stores bytes in the file exactly as writeDocument stores the writer's own document, with
    // the same outcomes and records; the bytes are not checked. After
    // QNCSAXWRITER_ERROR_NOT_SYNCED or QNCSAXWRITER_ERROR_FILE_WRITE, failedStep() names the
    // system call that failed ("" when none was made) and failedError() gives its errno.
    STATUSCODE storeDocument(const std::string& tstrDocument);
    const char* failedStep() const { return m_pFailedStep; }
    int failedError() const { return m_failedError; }

  private:
    enum DOCUMENT_STATE { DOCUMENT_NOT_STARTED, DOCUMENT_OPEN, DOCUMENT_ENDED, DOCUMENT_TAKEN };

    // One element whose end tag has not been written yet.
    struct OpenElement {
        std::string tstrName;
        bool bHasText = false;
        bool bHasChildren = false;
    };

    STATUSCODE openElement(const char* function, const std::string& tstrName,
                           const TStrPairList* pAttributes);
    void closeStartTagIfPending();
    void closeInnermostElement();
    // Logs one error line naming the file and returns status.
    STATUSCODE fail(const char* function, int line, STATUSCODE status,
                    const std::string& tstrReason) const;
    // As fail, and records status as the document's first failure.
    STATUSCODE record(const char* function, int line, STATUSCODE status,
                      const std::string& tstrReason);

    std::string m_tstrDirectory;
    std::string m_tstrFileName;
    std::string m_tstrPath;
    std::string m_tstrRootElement;
    std::string m_tstrDocument;
    std::vector<OpenElement> m_openElements;
    DOCUMENT_STATE m_eState;
    bool m_bStartTagPending;
    bool m_bKeepExisting = false;
    int m_directoryFd = -1;
    STATUSCODE m_status;
    const char* m_pFailedStep = "";
    int m_failedError = 0;
};

#endif  // QUILLNET_QNCSAXWRITER_H
