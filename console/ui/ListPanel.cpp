#include "console/ui/ListPanel.h"

#include <QHBoxLayout>
#include <QPushButton>

namespace tessaly::ui {

ListPanel::ListPanel(const QString& listName, const std::vector<ReportList::Column>& columns,
                     const Buttons& buttons, QWidget* parent)
    : QWidget(parent), list_(new ReportList(listName, columns, this)) {
    auto* row = new QHBoxLayout(this);
    row->addWidget(list_, 1);
    auto* column = new QVBoxLayout;
    row->addLayout(column);

    const auto addButton = [&](const Button& button) {
        auto* made = new QPushButton(button.caption, this);
        made->setObjectName(button.name);
        made->setAutoDefault(false);
        column->addWidget(made);
        return made;
    };
    connect(addButton(buttons.add), &QPushButton::clicked, this, &ListPanel::addClicked);
    if (!buttons.modify.name.isEmpty()) {
        auto* modify = addButton(buttons.modify);
        connect(modify, &QPushButton::clicked, this, &ListPanel::modifyClicked);
        connect(list_, &ReportList::modifyRequested, modify, &QPushButton::click);
    }
    auto* remove = addButton(buttons.remove);
    connect(remove, &QPushButton::clicked, this, &ListPanel::deleteClicked);
    connect(list_, &ReportList::deleteRequested, remove, &QPushButton::click);
    column->addStretch();
}

}  // namespace tessaly::ui
