#pragma once

#include <QStringList>
#include <QTreeWidget>
#include <vector>

namespace tessaly::ui {

/// A report-style list: named columns, one row per item, rows keyed by the text of their first cell.
class ReportList : public QTreeWidget {
    Q_OBJECT

  public:
    struct Column {
        QString title;
        double inches = 1.0;  ///< at 96 pixels each; ignored once setFractions() rules the widths
        Qt::Alignment alignment = Qt::AlignLeft;
    };

    ReportList(const QString& name, const std::vector<Column>& columns, QWidget* parent = nullptr);

    /// Widths as fractions of the list's own width, kept true when it is resized.
    void setFractions(std::vector<double> fractions);

    /// Refills the list: empties it when made; when it goes, also by a fault half-way, shows the rows added
    /// so far and, in a single-selection list, selects the first one. Column widths stay as the user left
    /// them.
    class Load {
      public:
        explicit Load(ReportList& list);
        ~Load();
        Load(const Load&) = delete;
        Load& operator=(const Load&) = delete;
        void add(const QStringList& cells);

      private:
        ReportList& list_;
        QList<QTreeWidgetItem*> rows_;  // handed over in one piece: a list of thousands appears at once
    };

    [[nodiscard]] bool isEmpty() const { return topLevelItemCount() == 0; }
    /// The selected row, or the current one of several. Throws std::runtime_error when nothing is selected.
    [[nodiscard]] QString selectedText(int column = 0) const;
    /// First cells of all selected rows, from the first row to the last; may be empty.
    [[nodiscard]] QStringList selectedTexts() const;

  Q_SIGNALS:
    /// The user went to a row by key, or clicked on one, also on the one where he was. Not during a load.
    void rowChosen();
    void modifyRequested();  ///< double click or Enter on a row
    void deleteRequested();  ///< Delete on a row

  protected:
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool viewportEvent(QEvent* event) override;
    [[nodiscard]] QItemSelectionModel::SelectionFlags selectionCommand(const QModelIndex& index,
                                                                       const QEvent* event) const override;

  private:
    void applyFractions();
    void announceRow();

    std::vector<Qt::Alignment> alignments_;
    std::vector<double> fractions_;
    bool loading_ = false;
    bool announced_ = false;  // since the mouse went down
};

}  // namespace tessaly::ui
