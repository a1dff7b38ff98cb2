#include "console/app/frmAbout.h"

#include <QCoreApplication>
#include <QGridLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>

namespace tessaly {

using namespace Qt::StringLiterals;

namespace {

/// Major, minor and revision of a build's number: the first two and the last of three or four.
QString threeNumbers(const QString& build) {
    const QStringList numbers = build.split(u'.');
    return QStringList{numbers.value(0), numbers.value(1), numbers.last()}.join(u'.');
}

}  // namespace

frmAbout::frmAbout(QWidget* parent) : QDialog(parent) {
    setObjectName(u"frmAbout"_s);
    setWindowTitle(u"About "_s + QCoreApplication::applicationName());
    constexpr int ImageSize = 64;
    constexpr int Spacing = 12;
    constexpr double TitleScale = 1.6;

    const auto label = [this](const QString& name, const QString& text) {
        auto* made = new QLabel(text, this);
        made->setObjectName(name);
        return made;
    };
    auto* image = label(u"Image1"_s, {});
    image->setPixmap(QIcon{u":/icons/console.svg"_s}.pixmap(ImageSize, ImageSize));
    auto* title = label(u"lblTitle"_s, QCoreApplication::applicationName());
    QFont large = title->font();
    large.setPointSizeF(large.pointSizeF() * TitleScale);
    large.setBold(true);
    title->setFont(large);

    auto* ok = new QPushButton(u"OK"_s, this);
    ok->setObjectName(u"cmdOk"_s);
    ok->setDefault(true);
    connect(ok, &QPushButton::clicked, this, &QDialog::accept);

    auto* grid = new QGridLayout(this);
    grid->setHorizontalSpacing(Spacing);
    grid->addWidget(image, 0, 0, 3, 1, Qt::AlignTop);
    grid->addWidget(title, 0, 1);
    grid->addWidget(
        label(u"lblVersion"_s, u"Version "_s + threeNumbers(QCoreApplication::applicationVersion())), 1, 1);
    grid->addWidget(label(u"lblDescription"_s, tr("Administration console of the Tessaly DICOM server")), 2,
                    1);
    grid->addWidget(ok, 3, 1, Qt::AlignRight);
    grid->setSizeConstraint(QLayout::SetFixedSize);
}

}  // namespace tessaly
