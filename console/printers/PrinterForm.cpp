#include "console/printers/PrinterForm.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>

#include "console/printers/DataFields.h"
#include "console/ui/FocusOutFilter.h"
#include "console/ui/SpinButtons.h"
#include "console/ui/TypedNumber.h"

namespace tessaly::printers {

using namespace Qt::StringLiterals;

namespace {

constexpr int NumberLimit = 5;

/// A drop-down list whose selection the Delete key clears.
class DeletableChoice : public QComboBox {
  public:
    using QComboBox::QComboBox;

  protected:
    void keyReleaseEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Delete)
            setCurrentIndex(-1);
        else
            QComboBox::keyReleaseEvent(event);
    }
};

QLabel* makeLabel(const QString& text, QWidget* field) {
    auto* label = new QLabel(text, field->parentWidget());
    label->setBuddy(field);
    return label;
}

/// As wide as a number needs.
QLineEdit* makeNarrow(QLineEdit* box) {
    box->setFixedWidth(box->fontMetrics().averageCharWidth() * 2 * NumberLimit);
    return box;
}

QFormLayout* makeRows(QGroupBox* frame) {
    auto* rows = new QFormLayout(frame);
    rows->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    return rows;
}

}  // namespace

PrinterForm::PrinterForm(QWidget* parent) : QWidget(parent) {
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);
    // In the order of the Tab key: down the left, then down the right.
    grid->addLayout(makeAddress(), 0, 0, 1, 2);
    auto* left = new QVBoxLayout;
    grid->addLayout(left, 1, 0);
    left->addWidget(makeJob());
    left->addWidget(makeDensities());
    auto* right = new QVBoxLayout;
    grid->addLayout(right, 1, 1);
    right->addWidget(makeGeometry());
    right->addWidget(makeIllumination());
    grid->addWidget(makeOther(), 2, 0, 1, 2);
    grid->setColumnStretch(0, 1);
    grid->setColumnStretch(1, 1);
}

QLayout* PrinterForm::makeAddress() {
    constexpr int TitleLimit = 16;
    constexpr int HostLimit = 64;
    auto* grid = new QGridLayout;
    const auto add = [&](int row, int column, const QString& label, QLineEdit* box) {
        grid->addWidget(makeLabel(label, box), row, column);
        grid->addWidget(box, row, column + 1);
        return box;
    };
    name_ = add(0, 0, u"Name"_s, makeText(u"txtName"_s, u"Name"_s, TitleLimit));
    aeTitle_ = add(0, 2, u"AETitle"_s, makeText(u"txtAETitle"_s, u"AETitle"_s, TitleLimit));
    host_ = add(1, 0, u"Host"_s, makeText(u"txtHost"_s, u"Host"_s, HostLimit));
    port_ = add(1, 2, u"Port"_s, makeText(u"txtPort"_s, u"Port"_s, TitleLimit));
    defaultPrinter_ = makeCheck(u"chkDefault"_s, u"DefaultPrinter"_s, u"Default printer"_s);
    grid->addWidget(defaultPrinter_, 2, 1);
    return grid;
}

QGroupBox* PrinterForm::makeJob() {
    constexpr int LeastCopies = 1;
    constexpr int MostCopies = 99;
    auto* frame = new QGroupBox(u"Job"_s);
    QFormLayout* rows = makeRows(frame);
    rows->addRow(u"Priority"_s, makeChoice(u"cmbPriority"_s, u"Priority"_s, {u"HIGH"_s, u"MED"_s, u"LOW"_s},
                                           Deletable::Yes));
    rows->addRow(u"Medium"_s, makeChoice(u"cmbMedium"_s, u"Medium"_s,
                                         {u"PAPER"_s, u"CLEAR FILM"_s, u"BLUE FILM"_s}, Deletable::Yes));
    rows->addRow(u"Destination"_s,
                 makeChoice(u"cmbDestination"_s, u"Destination"_s,
                            {u"MAGAZINE"_s, u"PROCESSOR"_s, u"BIN_1"_s, u"BIN_2"_s, u"BIN_3"_s, u"BIN_4"_s},
                            Deletable::Yes));
    addNumber(rows, u"Copies"_s, makeText(u"txtCopies"_s, u"Copies"_s), u"udCount"_s, LeastCopies, MostCopies,
              Activates::Yes);
    return frame;
}

QGroupBox* PrinterForm::makeDensities() {
    // In hundredths of optical density; film ends below 4.
    constexpr int LeastDensity = 0;
    constexpr int MostDensity = 400;
    auto* frame = new QGroupBox(u"Densities"_s);
    QFormLayout* rows = makeRows(frame);
    addNumber(rows, u"Min"_s, makeText(u"txtMinDensity"_s, u"MinDensity"_s, NumberLimit), u"udMinDensity"_s,
              LeastDensity, MostDensity, Activates::No);
    addNumber(rows, u"Max"_s, makeText(u"txtMaxDensity"_s, u"MaxDensity"_s, NumberLimit), u"udMaxDensity"_s,
              LeastDensity, MostDensity, Activates::Yes);
    rows->addRow(u"Border"_s,
                 makeChoice(u"cmbBorderDensity"_s, u"Border"_s, {u"BLACK"_s, u"WHITE"_s}, Deletable::No));
    rows->addRow(u"Empty"_s, makeChoice(u"cmbEmptyDensity"_s, u"EmptyDensity"_s, {u"BLACK"_s, u"WHITE"_s},
                                        Deletable::No));
    rows->addRow(u"Polarity"_s,
                 makeChoice(u"cmbPolarity"_s, u"Polarity"_s, {u"NORMAL"_s, u"REVERSE"_s}, Deletable::Yes));
    return frame;
}

QGroupBox* PrinterForm::makeIllumination() {
    auto* frame = new QGroupBox(u"Illumination"_s);
    QFormLayout* rows = makeRows(frame);
    rows->addRow(u"Illumination [cd/m^2]"_s, makeText(u"txtIllumination"_s, u"Illumination"_s));
    rows->addRow(u"Reflection [cd/m^2]"_s, makeText(u"txtReflection"_s, u"Reflection"_s));
    return frame;
}

QGroupBox* PrinterForm::makeGeometry() {
    auto* frame = new QGroupBox(u"Geometry"_s);
    QFormLayout* rows = makeRows(frame);
    QStringList layouts;
    for (const auto& format : {u"1,1"_s, u"1,2"_s, u"2,2"_s, u"2,3"_s, u"2,4"_s, u"3,3"_s, u"3,4"_s, u"3,5"_s,
                               u"4,4"_s, u"4,5"_s, u"4,6"_s, u"5,5"_s, u"5,6"_s, u"5,7"_s})
        layouts << u"STANDARD\\"_s + format;
    QComboBox* layout = makeChoice(u"cmbLayout"_s, u"Layout"_s, layouts, Deletable::No);
    layout->setCurrentIndex(0);
    rows->addRow(u"Layout"_s, layout);
    rows->addRow(u"Film size"_s,
                 makeChoice(u"cmbSize"_s, u"FilmSize"_s,
                            {u"8INX10IN"_s, u"10INX12IN"_s, u"11INX14IN"_s, u"11INX17IN"_s, u"14INX14IN"_s,
                             u"14INX17IN"_s, u"24CMX24CM"_s, u"24CMX30CM"_s, u"A4"_s, u"A3"_s},
                            Deletable::Yes));
    rows->addRow(u"Resolution"_s,
                 makeChoice(u"cmbResolution"_s, u"Resolution"_s, {u"STANDARD"_s, u"HIGH"_s}, Deletable::Yes));
    rows->addRow(u"Orientation"_s, makeChoice(u"cmbOrientation"_s, u"Orientation"_s,
                                              {u"PORTRAIT"_s, u"LANDSCAPE"_s}, Deletable::Yes));
    rows->addRow(u"Magnification"_s,
                 makeChoice(u"cmbMagnification"_s, u"Magnification"_s,
                            {u"REPLICATE"_s, u"BILINEAR"_s, u"CUBIC"_s, u"NONE"_s}, Deletable::Yes));
    rows->addRow(u"Smoothing"_s, makeChoice(u"cmbSmoothing"_s, u"Smoothing"_s,
                                            {u"MEDIUM"_s, u"SHARP"_s, u"SMOOTH"_s}, Deletable::No));
    rows->addRow(u"Trim"_s, makeChoice(u"cmbTrim"_s, u"Trim"_s, {u"YES"_s, u"NO"_s}, Deletable::Yes));
    return frame;
}

QGroupBox* PrinterForm::makeOther() {
    auto* frame = new QGroupBox(u"Other "_s);
    auto* grid = new QGridLayout(frame);
    auto* line = new QHBoxLayout;
    numBits_ = makeChoice(u"cmbNumBits"_s, {}, {u"8"_s, u"10"_s, u"12"_s, u"16"_s}, Deletable::No);
    grid->addWidget(makeLabel(u"Num bits."_s, numBits_), 0, 0);
    grid->addLayout(line, 0, 1);
    line->addWidget(numBits_);
    line->addStretch();
    line->addWidget(new QLabel(u"Grid size"_s));
    const auto addSize = [&](const QString& label, const QString& objectName, const QString& column) {
        QLineEdit* box = makeText(objectName, column, NumberLimit);
        line->addWidget(makeLabel(label, box));
        line->addWidget(makeNarrow(box));
    };
    addSize(u"dx"_s, u"txtGridSizeDx"_s, u"GridSizeDx"_s);
    addSize(u"dy"_s, u"txtGridSizeDy"_s, u"GridSizeDy"_s);
    line->addStretch();
    line->addWidget(makeCheck(u"chkForce"_s, u"ForceBW"_s, u"Force Back&&White"_s));
    QLineEdit* parameters = makeText(u"txtUserParams"_s, u"UserParams"_s);
    grid->addWidget(makeLabel(u"User parameters"_s, parameters), 1, 0);
    grid->addWidget(parameters, 1, 1);
    return frame;
}

QLineEdit* PrinterForm::makeText(const QString& objectName, const QString& column, int limit) {
    auto* box = new QLineEdit(this);
    box->setObjectName(objectName);
    if (limit > 0)
        box->setMaxLength(limit);
    setDataField(box, column);
    return box;
}

QComboBox* PrinterForm::makeChoice(const QString& objectName, const QString& column, const QStringList& items,
                                   Deletable deletable) {
    auto* combo = deletable == Deletable::Yes ? new DeletableChoice(this) : new QComboBox(this);
    combo->setObjectName(objectName);
    combo->addItems(items);
    combo->setCurrentIndex(-1);
    setDataField(combo, column);
    return combo;
}

QCheckBox* PrinterForm::makeCheck(const QString& objectName, const QString& column, const QString& caption) {
    auto* box = new QCheckBox(caption, this);
    box->setObjectName(objectName);
    setDataField(box, column);
    return box;
}

void PrinterForm::addNumber(QFormLayout* rows, const QString& label, QLineEdit* box, const QString& spinName,
                            int minimum, int maximum, Activates activates) {
    auto* pair = new QHBoxLayout;
    pair->setSpacing(0);
    pair->addWidget(makeNarrow(box));
    auto* spin = new ui::SpinButtons(spinName, box, minimum, maximum, this);
    pair->addWidget(spin);
    pair->addStretch();
    rows->addRow(makeLabel(label, box), pair);
    if (activates == Activates::No)
        return;
    connect(spin, &ui::SpinButtons::changed, box, [box] { box->setFocus(); });
    ui::onLeave(box, [box] {
        const auto number = ui::enteredNumber(box->text());
        if (!number || number->value == 0)
            box->clear();
    });
}

}  // namespace tessaly::printers
