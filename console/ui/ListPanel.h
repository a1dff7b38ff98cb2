#pragma once

#include <QWidget>
#include <vector>

#include "console/ui/ReportList.h"

class QPushButton;

namespace tessaly::ui {

/// A report list with its buttons in a column beside it. Double click and Enter press the modify button, the
/// Delete key the delete button: what a handler does stands in one place.
class ListPanel : public QWidget {
    Q_OBJECT

  public:
    struct Button {
        QString name;
        QString caption;
    };
    struct Buttons {
        Button add;
        Button modify;  ///< no name: the list has no such button
        Button remove;
    };

    ListPanel(const QString& listName, const std::vector<ReportList::Column>& columns, const Buttons& buttons,
              QWidget* parent = nullptr);

    [[nodiscard]] ReportList& list() const { return *list_; }

  Q_SIGNALS:
    void addClicked();
    void modifyClicked();
    void deleteClicked();

  private:
    ReportList* list_;
};

}  // namespace tessaly::ui
