#pragma once

#include "console/app/TessalyManager.h"
#include "tests/support/EditorTest.h"

// The page of the printers and its dialog, as tests drive them.

namespace tessaly::test {

/// Every control that is saved, with a value that differs from what a new printer has.
inline const Fields& fields() {
    static const Fields all{
        {QStringLiteral("txtName"), QStringLiteral("Name"), QStringLiteral("Film Ä")},
        {QStringLiteral("txtAETitle"), QStringLiteral("AETitle"), QStringLiteral("FILM_SCP")},
        {QStringLiteral("txtHost"), QStringLiteral("Host"), QStringLiteral("film.example")},
        {QStringLiteral("txtPort"), QStringLiteral("Port"), QStringLiteral("104")},
        {QStringLiteral("cmbPriority"), QStringLiteral("Priority"), QStringLiteral("LOW")},
        {QStringLiteral("cmbMedium"), QStringLiteral("Medium"), QStringLiteral("CLEAR FILM")},
        {QStringLiteral("cmbDestination"), QStringLiteral("Destination"), QStringLiteral("BIN_4")},
        {QStringLiteral("txtCopies"), QStringLiteral("Copies"), QStringLiteral("2")},
        {QStringLiteral("txtIllumination"), QStringLiteral("Illumination"), QStringLiteral("2000")},
        {QStringLiteral("txtReflection"), QStringLiteral("Reflection"), QStringLiteral("10")},
        {QStringLiteral("txtMinDensity"), QStringLiteral("MinDensity"), QStringLiteral("20")},
        {QStringLiteral("txtMaxDensity"), QStringLiteral("MaxDensity"), QStringLiteral("320")},
        {QStringLiteral("cmbBorderDensity"), QStringLiteral("Border"), QStringLiteral("WHITE")},
        {QStringLiteral("cmbPolarity"), QStringLiteral("Polarity"), QStringLiteral("REVERSE")},
        {QStringLiteral("cmbEmptyDensity"), QStringLiteral("EmptyDensity"), QStringLiteral("BLACK")},
        {QStringLiteral("cmbLayout"), QStringLiteral("Layout"), QStringLiteral("STANDARD\\5,7")},
        {QStringLiteral("cmbSize"), QStringLiteral("FilmSize"), QStringLiteral("24CMX30CM")},
        {QStringLiteral("cmbResolution"), QStringLiteral("Resolution"), QStringLiteral("HIGH")},
        {QStringLiteral("cmbOrientation"), QStringLiteral("Orientation"), QStringLiteral("LANDSCAPE")},
        {QStringLiteral("cmbMagnification"), QStringLiteral("Magnification"), QStringLiteral("BILINEAR")},
        {QStringLiteral("cmbSmoothing"), QStringLiteral("Smoothing"), QStringLiteral("SHARP")},
        {QStringLiteral("cmbTrim"), QStringLiteral("Trim"), QStringLiteral("NO")},
        {QStringLiteral("txtGridSizeDx"), QStringLiteral("GridSizeDx"), QStringLiteral("300")},
        {QStringLiteral("txtGridSizeDy"), QStringLiteral("GridSizeDy"), QStringLiteral("400")},
        {QStringLiteral("txtUserParams"), QStringLiteral("UserParams"), QStringLiteral("a=1;b='%?'")},
        {QStringLiteral("chkForce"), QStringLiteral("ForceBW"), QStringLiteral("1")},
        {QStringLiteral("chkDefault"), QStringLiteral("DefaultPrinter"), QStringLiteral("1")},
        {QStringLiteral("cmbNumBits"), QStringLiteral("Force8bit"), QStringLiteral("16")},
    };
    return all;
}

/// What every printer must have.
inline Values address(const QString& name) {
    return {{QStringLiteral("txtName"), name},
            {QStringLiteral("txtAETitle"), QStringLiteral("TITLE")},
            {QStringLiteral("txtHost"), QStringLiteral("host")},
            {QStringLiteral("txtPort"), QStringLiteral("104")}};
}

/// What a printer that cannot be saved is told with.
inline Box failure() {
    return plain(QStringLiteral("Update Printer: ") + containing(ScratchDatabase::Failure));
}

/// With the printers 'zoo', of which only the address is known, and 'Alpha', the default.
class PrinterEditorTest : public EditorTest {
  protected:
    PrinterEditorTest()
        : EditorTest(Page::Printers, {.list = QStringLiteral("lstDcmPrinters"),
                                      .dialog = QStringLiteral("frmDcmPrinter"),
                                      .add = QStringLiteral("cmdAddPrinter"),
                                      .modify = QStringLiteral("cmdModifyPrinter"),
                                      .remove = QStringLiteral("cmdDeletePrinter"),
                                      .table = QStringLiteral("Printers"),
                                      .keyColumn = QStringLiteral("Name"),
                                      .keyBox = QStringLiteral("txtName"),
                                      .question = QStringLiteral("Are you sure you want to delete %1?"),
                                      .load = &TessalyManager::LoadDicomPrinters}) {}
    void seed() const override {
        database().run(QStringLiteral(
            "INSERT INTO Printers (Name, AETitle, Host, Port) VALUES ('zoo', 'ZOO', 'z', '1')"));
        database().run(
            QStringLiteral("INSERT INTO Printers (Name, AETitle, Host, Port, Layout, FilmSize, Medium, "
                           "Destination, Orientation, DefaultPrinter) VALUES ('Alpha', 'A', 'a', '2', "
                           "'STANDARD\\1,2', 'A4', 'PAPER', 'BIN_1', 'PORTRAIT', 1)"));
    }
};

}  // namespace tessaly::test
