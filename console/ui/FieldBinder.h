#pragma once

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QLineEdit>
#include <algorithm>
#include <functional>
#include <stdexcept>
#include <vector>

#include "console/ui/UneditedText.h"

namespace tessaly::ui {

/// Ties the controls of a form to the members of a record: a control, its label, object name and limit in one
/// line. The controls belong to the form; the binder must not outlive it.
template <class Record>
class FieldBinder {
  public:
    /// A text box of at most `limit` characters (0: no limit) in a labelled row.
    QLineEdit* text(QFormLayout* rows, const QString& label, const QString& name, int limit,
                    QString Record::*member) {
        auto* box = new QLineEdit;
        box->setObjectName(name);
        if (limit > 0)
            box->setMaxLength(limit);
        // As wide as the text it may hold, as far as that is sensible.
        constexpr int Shortest = 16;
        constexpr int Longest = 40;
        box->setMinimumWidth(box->fontMetrics().averageCharWidth() * std::clamp(limit, Shortest, Longest));
        rows->addRow(label, box);
        tie([=](const Record& record) { showText(box, record.*member); },
            [=](Record& record) { record.*member = textOf(box); });
        return box;
    }

    /// A drop-down list without free typing in a labelled row, with nothing chosen. Showing a record whose
    /// text is no entry of the list throws std::runtime_error, and the controls tied after it are left alone;
    /// only an empty text finds its like in an empty list.
    QComboBox* choice(QFormLayout* rows, const QString& label, const QString& name, const QStringList& items,
                      QString Record::*member) {
        auto* box = new QComboBox;
        box->setObjectName(name);
        box->addItems(items);
        box->setCurrentIndex(-1);
        rows->addRow(label, box);
        tie([=](const Record& record) { choose(box, label, record.*member); },
            [=](Record& record) { record.*member = box->currentText(); });
        return box;
    }

    /// A check box with its caption; the caller places it.
    QCheckBox* check(const QString& caption, const QString& name, bool Record::*member) {
        auto* box = new QCheckBox(caption);
        box->setObjectName(name);
        tie([=](const Record& record) { box->setChecked(record.*member); },
            [=](Record& record) { record.*member = box->isChecked(); });
        return box;
    }

    /// Shows the record in the controls, in the order in which they were tied.
    void show(const Record& record) const {
        for (const Tie& tie : ties_)
            tie.show(record);
    }

    /// The record as the controls hold it; what does not fit into a text box is whole as long as nobody edits
    /// it.
    [[nodiscard]] Record read() const {
        Record record;
        for (const Tie& tie : ties_)
            tie.read(record);
        return record;
    }

  private:
    static void choose(QComboBox* box, const QString& label, const QString& text) {
        box->setCurrentIndex(box->findText(text, Qt::MatchExactly | Qt::MatchCaseSensitive));
        if (box->currentIndex() < 0 && !(text.isEmpty() && box->count() == 0))
            throw std::runtime_error(
                QStringLiteral("'%1' is no entry of the list '%2'").arg(text, label).toStdString());
    }

    struct Tie {
        std::function<void(const Record&)> show;
        std::function<void(Record&)> read;
    };
    void tie(std::function<void(const Record&)> show, std::function<void(Record&)> read) {
        ties_.push_back({std::move(show), std::move(read)});
    }

    std::vector<Tie> ties_;
};

}  // namespace tessaly::ui
