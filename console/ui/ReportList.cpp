#include "console/ui/ReportList.h"

#include <QFontMetrics>
#include <QHeaderView>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QStyledItemDelegate>
#include <QTextDocument>
#include <QToolTip>
#include <cmath>
#include <stdexcept>

namespace tessaly::ui {

using namespace Qt::StringLiterals;

namespace {

constexpr double PixelsPerInch = 96;
constexpr int MinimumSection = 8;  // narrow fractions must hold in a narrow window

/// Gives the rows some air.
class RowDelegate : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option,
                                 const QModelIndex& index) const override {
        constexpr int Air = 5;
        return QStyledItemDelegate::sizeHint(option, index) + QSize{0, Air};
    }
};

/// A row that keeps its cells as they came. The toolkit's own items hold a list of variants for every cell:
/// with thousands of rows, making those took as long as reading the rows from the database.
class Row : public QTreeWidgetItem {
  public:
    Row(QStringList cells, const std::vector<Qt::Alignment>& alignments)
        : cells_(std::move(cells)), alignments_(alignments) {}

    [[nodiscard]] QVariant data(int column, int role) const override {
        if (role == Qt::DisplayRole)
            return cells_.value(column);
        if (role == Qt::TextAlignmentRole)
            return QVariant::fromValue(alignments_.at(static_cast<std::size_t>(column)) | Qt::AlignVCenter);
        return QTreeWidgetItem::data(column, role);
    }

  private:
    QStringList cells_;
    const std::vector<Qt::Alignment>& alignments_;  // the list's, one for each column
};

/// A text as a tool tip that shows it as it stands: what the toolkit would take for markup is given as markup
/// of that text.
QString toolTipOf(const QString& text) {
    if (!Qt::mightBeRichText(text))
        return text;
    return u"<p style='white-space:pre'>"_s + text.toHtmlEscaped() + u"</p>"_s;
}

}  // namespace

ReportList::ReportList(const QString& name, const std::vector<Column>& columns, QWidget* parent)
    : QTreeWidget(parent) {
    setObjectName(name);
    setItemDelegate(new RowDelegate(this));
    setRootIsDecorated(false);
    setUniformRowHeights(true);
    setAllColumnsShowFocus(true);
    setAlternatingRowColors(true);
    setEditTriggers(NoEditTriggers);
    setTabKeyNavigation(false);
    header()->setStretchLastSection(false);
    header()->setMinimumSectionSize(MinimumSection);
    header()->setSectionsMovable(false);

    QStringList titles;
    for (const Column& column : columns)
        titles << column.title;
    setHeaderLabels(titles);
    for (int i = 0; i < static_cast<int>(columns.size()); ++i) {
        const Column& column = columns[static_cast<std::size_t>(i)];
        headerItem()->setToolTip(i, column.title);  // a narrow column cuts it
        headerItem()->setTextAlignment(i, column.alignment | Qt::AlignVCenter);
        setColumnWidth(i, static_cast<int>(std::lround(column.inches * PixelsPerInch)));
        alignments_.push_back(column.alignment);
    }
    connect(this, &QTreeWidget::itemDoubleClicked, this, &ReportList::modifyRequested);
    // Not currentItemChanged: a press makes the row the current one before it selects it.
    connect(this, &QTreeWidget::itemSelectionChanged, this, &ReportList::announceRow);
    connect(this, &QTreeWidget::itemClicked, this, [this] {
        if (!announced_)  // or else the press moved to the row and said so
            announceRow();
    });
}

void ReportList::setFractions(std::vector<double> fractions) {
    fractions_ = std::move(fractions);
    applyFractions();
}

void ReportList::applyFractions() {
    for (int i = 0; i < static_cast<int>(fractions_.size()); ++i)
        setColumnWidth(i, static_cast<int>(fractions_[static_cast<std::size_t>(i)] * width()));
}

QString ReportList::selectedText(int column) const {
    const QList<QTreeWidgetItem*> items = selectedItems();
    if (items.isEmpty())
        throw std::runtime_error("No item is selected");
    return (items.contains(currentItem()) ? currentItem() : items.first())->text(column);
}

QStringList ReportList::selectedTexts() const {
    QStringList texts;
    for (int row = 0; row < topLevelItemCount(); ++row) {
        if (topLevelItem(row)->isSelected())
            texts << topLevelItem(row)->text(0);
    }
    return texts;
}

void ReportList::keyPressEvent(QKeyEvent* event) {
    const bool onRow = currentItem() != nullptr;
    if (onRow && event->key() == Qt::Key_Delete)
        Q_EMIT deleteRequested();
    else if (onRow && (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter))
        Q_EMIT modifyRequested();
    else
        QTreeWidget::keyPressEvent(event);
}

void ReportList::mousePressEvent(QMouseEvent* event) {
    announced_ = false;
    QTreeWidget::mousePressEvent(event);
}

void ReportList::announceRow() {
    if (loading_ || selectedItems().isEmpty())
        return;
    announced_ = true;
    Q_EMIT rowChosen();
}

void ReportList::resizeEvent(QResizeEvent* event) {
    QTreeWidget::resizeEvent(event);
    applyFractions();
}

bool ReportList::viewportEvent(QEvent* event) {
    if (event->type() != QEvent::ToolTip)
        return QTreeWidget::viewportEvent(event);
    // A cell that is cut shows its whole text.
    const auto* help = static_cast<QHelpEvent*>(event);
    const QModelIndex index = indexAt(help->pos());
    const QString text = index.data().toString();
    const int room = visualRect(index).width() - 2 * (style()->pixelMetric(QStyle::PM_FocusFrameHMargin) + 1);
    if (index.isValid() && fontMetrics().horizontalAdvance(text) > room)
        QToolTip::showText(help->globalPos(), toolTipOf(text), viewport());
    else
        QToolTip::hideText();
    return true;
}

QItemSelectionModel::SelectionFlags ReportList::selectionCommand(const QModelIndex& index,
                                                                 const QEvent* event) const {
    if (selectionMode() != SingleSelection)
        return QTreeWidget::selectionCommand(index, event);
    // One row stays selected whatever is clicked: the buttons beside the list always have their row.
    return index.isValid() ? QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows
                           : QItemSelectionModel::NoUpdate;
}

ReportList::Load::Load(ReportList& list) : list_(list) {
    list_.loading_ = true;
    list_.clear();
}

void ReportList::Load::add(const QStringList& cells) {
    rows_ << new Row(cells, list_.alignments_);  // owned by rows_ until the list takes it
}

ReportList::Load::~Load() {
    list_.addTopLevelItems(rows_);
    if (list_.selectionMode() == SingleSelection && !rows_.isEmpty())
        list_.setCurrentItem(rows_.first());
    list_.loading_ = false;
}

}  // namespace tessaly::ui
