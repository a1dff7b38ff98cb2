#pragma once

#include "console/app/TessalyManager.h"
#include "tests/support/EditorTest.h"

// The page of the users and its dialog, as tests drive them.

namespace tessaly::test {

struct Permission {
    QString box;
    QString column;
    QString caption;
    QString toolTip;
    bool preset;
};
/// The check boxes of the dialog; `preset` in that of a new user.
inline const QList<Permission>& permissions() {
    const auto referts = QStringLiteral("User can create/edit referts");
    const auto administrator = QStringLiteral("User is an administrator");
    static const QList<Permission> all{
        {QStringLiteral("chkUpdate"), QStringLiteral("DcmUpdate"), QStringLiteral("Update"), {}, true},
        {QStringLiteral("chkDelete"), QStringLiteral("DcmDelete"), QStringLiteral("Delete"), {}, true},
        {QStringLiteral("chkMove"), QStringLiteral("Move"), QStringLiteral("Move/Get"),
         QStringLiteral("User can send/get studies/series"), true},
        {QStringLiteral("chkSend"), QStringLiteral("Send"), QStringLiteral("Send"), referts, true},
        {QStringLiteral("chkRefert"), QStringLiteral("Refert"), QStringLiteral("Refert"), referts, true},
        {QStringLiteral("chkImport"), QStringLiteral("Import"), QStringLiteral("Import from scanner"),
         referts, true},
        {QStringLiteral("chkBackup"), QStringLiteral("Backup"), QStringLiteral("Backup/Restore"), referts,
         true},
        {QStringLiteral("chkROI"), QStringLiteral("ROI"), QStringLiteral("Manage ROI"), referts, true},
        {QStringLiteral("chkModTags"), QStringLiteral("ModTags"), QStringLiteral("Manage DICOM tags"),
         referts, false},
        {QStringLiteral("chkAdmin"), QStringLiteral("DcmAdmin"), QStringLiteral("Administrator"),
         administrator, false},
        {QStringLiteral("chkWLogin"), QStringLiteral("WLogin"), QStringLiteral("Use Windows login"),
         administrator, false},
    };
    return all;
}

/// With the administrator and the user 'zoe'.
class UserEditorTest : public EditorTest {
  protected:
    UserEditorTest()
        : EditorTest(Page::Users, {.list = QStringLiteral("lstUsers"),
                                   .dialog = QStringLiteral("frmUser"),
                                   .add = QStringLiteral("cmdAddUser"),
                                   .modify = QStringLiteral("cmdModifyUser"),
                                   .remove = QStringLiteral("cmdDelUser"),
                                   .table = QStringLiteral("Users"),
                                   .keyColumn = QStringLiteral("UserName"),
                                   .keyBox = QStringLiteral("txtUser"),
                                   .question = QStringLiteral("Are you sure you want to delete user [%1] ?"),
                                   .load = &TessalyManager::LoadUsers}) {}
    void seed() const override {
        database().run(
            QStringLiteral("INSERT INTO Users (UserName, UserPwd, Signature, DcmUpdate, Send, ModTags) "
                           "VALUES ('zoe', 'storedform16byte', 'Dr. Zoe', 1, -1, -1)"));
    }
    static void typePassword(const Form& form, const QString& password) {
        form.type(QStringLiteral("txtPassword1"), password);
        form.type(QStringLiteral("txtPassword2"), password);
    }
};

}  // namespace tessaly::test
