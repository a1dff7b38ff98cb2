#pragma once

#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <functional>
#include <variant>
#include <vector>

#include "tests/support/Form.h"

namespace tessaly::test {

/// What a message box is to show, and the button that answers it.
struct Box {
    QString text;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QString title = {};
    QMessageBox::StandardButtons buttons = QMessageBox::Ok;
    QMessageBox::StandardButton answer = QMessageBox::Ok;
};
[[nodiscard]] Box plain(const QString& text);
[[nodiscard]] Box critical(const QString& text);
[[nodiscard]] Box yesNo(const QString& text, QMessageBox::StandardButton answer);
[[nodiscard]] Box okCancel(const QString& text, QMessageBox::StandardButton answer);
/// For a box's text: whichever has that part. What stands before it is how the text has to begin.
[[nodiscard]] QString containing(const QString& part);
/// Does what makes just these boxes come up, one after the other.
void answering(const QList<Box>& boxes, const std::function<void()>& action);

/// Answers the message boxes and modal dialogs that come up while it lives, in the order in which they are
/// expected. A box that differs from what is expected, comes unexpected, or does not come at all fails the
/// test. A box that is expected with the text AnyText matches every text, containing() those with a part;
/// boxes() has what was shown.
class BoxScript : public QObject {
  public:
    inline static const QString AnyText = QStringLiteral("\u0001any");

    BoxScript();
    ~BoxScript() override;

    /// Expects a message box.
    BoxScript& expect(const Box& box);
    /// Expects a modal dialog by object name (or a file dialog by "QFileDialog") and drives it; the body is
    /// to close it, a dialog that stays open is a failure and is rejected.
    BoxScript& drive(const QString& dialogName, std::function<void(Form)> body);

    /// The boxes answered so far, as they were.
    [[nodiscard]] const std::vector<Box>& boxes() const { return boxes_; }
    [[nodiscard]] bool isDone() const { return next_ == steps_.size() && !failed_; }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    struct Dialog {
        QString name;
        std::function<void(Form)> body;
    };
    [[nodiscard]] static bool matches(const QString& text, const QString& expected);
    void meet(QWidget* window);
    void answer(QMessageBox* box);
    void run(QWidget* window);
    void fail(const QString& why);

    std::vector<std::variant<Box, Dialog>> steps_;
    std::size_t next_ = 0;
    std::vector<Box> boxes_;
    bool failed_ = false;
};

}  // namespace tessaly::test
