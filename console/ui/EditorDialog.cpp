#include "console/ui/EditorDialog.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "console/ui/FocusOutFilter.h"
#include "console/ui/Guard.h"
#include "console/ui/Mnemonics.h"

namespace tessaly::ui {

using namespace Qt::StringLiterals;

EditorDialog::EditorDialog(const Traits& traits, QWidget* parent)
    : QDialog(parent), traits_(traits), body_(new QVBoxLayout) {
    setObjectName(traits.name);
    setWindowTitle(traits.caption);
    (new QVBoxLayout(this))->addLayout(body_, 1);
}

void EditorDialog::addButtons(std::initializer_list<QPushButton*> sideButtons) {
    auto* row = new QHBoxLayout;
    static_cast<QVBoxLayout*>(layout())->addLayout(row);
    for (QPushButton* button : sideButtons)
        row->addWidget(button);
    row->addStretch();
    const auto addButton = [&](const QString& name, const QString& caption) {
        auto* button = new QPushButton(caption);
        button->setObjectName(name);
        row->addWidget(button);
        return button;
    };
    // Enter presses Confirm, but while another button has the focus that one: the toolkit's own way, for
    // which every button stays as a dialog makes it.
    auto* confirm = addButton(u"cmdOk"_s, u"Confirm"_s);
    confirm->setDefault(true);
    connect(confirm, &QPushButton::clicked, this, handler([this] {
                if (const QWidget* box = focusWidget())  // Enter and Alt+letter leave it there
                    asIfLeft(box);
                cmdOk_Click();
            }));
    connect(addButton(u"cmdCancel"_s, u"Cancel"_s), &QPushButton::clicked, this, &QDialog::reject);
    assignMnemonics(this);
}

void EditorDialog::fillAndShow(const std::function<void()>& fill) {
    guarded(this, BoxStyle::Critical, fill);
    showModal();
}

bool EditorDialog::isFilled(QLineEdit* box, const QString& message, BoxStyle style) {
    if (!box->text().isEmpty())
        return true;
    messageBox(this, message, style);
    box->setFocus();
    return false;
}

void EditorDialog::cmdOk_Click() {
    guarded(this, traits_.saveFaults, [this] {
        if (FormValidate())
            saveAndClose();
    });
}

void EditorDialog::saveAndClose() {
    if (!save())
        return;
    reload();
    accept();
}

}  // namespace tessaly::ui
