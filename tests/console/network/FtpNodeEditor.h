#pragma once

#include "console/app/TessalyManager.h"
#include "tests/support/EditorTest.h"

// The page of the FTP nodes and its dialog, as tests drive them.

namespace tessaly::test {

class FtpNodeEditorTest : public EditorTest {
  protected:
    FtpNodeEditorTest()
        : EditorTest(Page::FtpNodes, {.list = QStringLiteral("lstFTPNodes"),
                                      .dialog = QStringLiteral("FTPNode"),
                                      .add = QStringLiteral("cmdFTPAdd"),
                                      .modify = QStringLiteral("cmdFTPModify"),
                                      .remove = QStringLiteral("cmdFTPDelete"),
                                      .table = QStringLiteral("FtpNodes"),
                                      .keyColumn = QStringLiteral("Name"),
                                      .keyBox = QStringLiteral("txtName"),
                                      .question = QStringLiteral("Are you sure you want to delete %1?"),
                                      .load = &TessalyManager::LoadFTPNodes}) {}
};

}  // namespace tessaly::test
