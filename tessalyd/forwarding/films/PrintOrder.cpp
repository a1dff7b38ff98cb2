#include "tessalyd/forwarding/films/PrintOrder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "base/FileDescriptor.h"

using namespace Qt::StringLiterals;

namespace tessaly::tessalyd::films {

namespace {

constexpr const char* FileName = "order";
constexpr off_t Longest = off_t{64} << 20U;

[[noreturn]] void fail(const char* what) {
    throw std::system_error{errno, std::generic_category(), what};
}

// Values are bytes in whatever character set: each is one character of the file's texts.

QString text(const std::string& bytes) {
    return QString::fromLatin1(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

std::string bytes(const QJsonValue& value) {
    return value.toString().toLatin1().toStdString();
}

unsigned number(const QJsonValue& value) {
    return static_cast<unsigned>(value.toInt());
}

QString keyOf(const DcmTagKey& tag) {
    return QString::number((static_cast<unsigned>(tag.getGroup()) << 16U) | tag.getElement(), 16);
}

QJsonObject written(const Settings& settings) {
    QJsonObject object;
    for (const auto& [tag, value] : settings)
        object.insert(keyOf(tag), text(value));
    return object;
}

Settings settingsOf(const QJsonValue& value) {
    Settings settings;
    const QJsonObject object = value.toObject();
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        const unsigned tag = entry.key().toUInt(nullptr, 16);
        settings.emplace(DcmTagKey{static_cast<Uint16>(tag >> 16U), static_cast<Uint16>(tag)},
                         bytes(entry.value()));
    }
    return settings;
}

QJsonObject written(const ImageLayout& layout) {
    return {{u"rows"_s, static_cast<int>(layout.rows)},
            {u"columns"_s, static_cast<int>(layout.columns)},
            {u"samples"_s, static_cast<int>(layout.samples)},
            {u"allocated"_s, static_cast<int>(layout.bitsAllocated)},
            {u"stored"_s, static_cast<int>(layout.bitsStored)},
            {u"byPlane"_s, layout.isByPlane},
            {u"inverse"_s, layout.isInverse},
            {u"aspect"_s, text(layout.aspectRatio)}};
}

ImageLayout layoutOf(const QJsonValue& value) {
    const QJsonObject object = value.toObject();
    return {.rows = number(object[u"rows"]),
            .columns = number(object[u"columns"]),
            .samples = number(object[u"samples"]),
            .bitsAllocated = number(object[u"allocated"]),
            .bitsStored = number(object[u"stored"]),
            .isByPlane = object[u"byPlane"].toBool(),
            .isInverse = object[u"inverse"].toBool(),
            .aspectRatio = bytes(object[u"aspect"])};
}

QJsonObject written(const PresentationLut& lut) {
    QJsonArray values;
    for (const std::uint16_t value : lut.table.values)
        values.append(value);
    return {{u"shape"_s, text(lut.shape)},
            {u"bits"_s, static_cast<int>(lut.table.bits)},
            {u"explanation"_s, text(lut.explanation)},
            {u"values"_s, values}};
}

PresentationLut lutOf(const QJsonObject& object) {
    PresentationLut lut{.shape = bytes(object[u"shape"]),
                        .table = {.values = {}, .bits = number(object[u"bits"])},
                        .explanation = bytes(object[u"explanation"])};
    for (const auto& value : object[u"values"].toArray())
        lut.table.values.push_back(static_cast<std::uint16_t>(value.toInt()));
    return lut;
}

QJsonObject written(const Film& film) {
    QJsonObject images;
    for (const auto& [position, image] : film.images)
        images.insert(QString::number(position), QJsonObject{{u"file"_s, text(image.file)},
                                                             {u"layout"_s, written(image.layout)},
                                                             {u"settings"_s, written(image.settings)},
                                                             {u"lut"_s, text(image.lut)}});
    QJsonObject annotations;
    for (const auto& [position, annotation] : film.annotations)
        annotations.insert(QString::number(position), QJsonObject{{u"text"_s, text(annotation.text)},
                                                                  {u"set"_s, text(annotation.characterSet)}});
    return {{u"format"_s, text(film.displayFormat)},
            {u"settings"_s, written(film.settings)},
            {u"lut"_s, text(film.lut)},
            {u"images"_s, images},
            {u"annotations"_s, annotations}};
}

Film filmOf(const QJsonObject& object) {
    Film film{.displayFormat = bytes(object[u"format"]),
              .settings = settingsOf(object[u"settings"]),
              .lut = bytes(object[u"lut"])};
    const QJsonObject images = object[u"images"].toObject();
    for (auto entry = images.begin(); entry != images.end(); ++entry) {
        const QJsonObject image = entry.value().toObject();
        film.images.emplace(entry.key().toUInt(), FilmImage{.file = bytes(image[u"file"]),
                                                            .layout = layoutOf(image[u"layout"]),
                                                            .settings = settingsOf(image[u"settings"]),
                                                            .lut = bytes(image[u"lut"])});
    }
    const QJsonObject annotations = object[u"annotations"].toObject();
    for (auto entry = annotations.begin(); entry != annotations.end(); ++entry) {
        const QJsonObject one = entry.value().toObject();
        film.annotations.emplace(entry.key().toUInt(), FilmAnnotation{.text = bytes(one[u"text"]),
                                                                      .characterSet = bytes(one[u"set"])});
    }
    return film;
}

/// What the pixels' reader divides by and allocates for.
bool isUsable(const FilmImage& image) {
    const ImageLayout& layout = image.layout;
    constexpr unsigned Most = 65535;
    const bool isSize =
        layout.rows > 0 && layout.rows <= Most && layout.columns > 0 && layout.columns <= Most;
    const bool isDepth = (layout.bitsAllocated == 8 || layout.bitsAllocated == 16) && layout.bitsStored > 0 &&
                         layout.bitsStored <= layout.bitsAllocated;
    const bool isName =
        !image.file.empty() && image.file.find('/') == std::string::npos && image.file[0] != '.';
    return isSize && isDepth && isName && (layout.samples == 1 || layout.samples == 3);
}

bool isUsable(const Film& film) {
    const auto format = DisplayFormat::parse(film.displayFormat);
    if (!format)
        return false;
    return std::ranges::all_of(film.images, [&format](const auto& box) {
        const auto& [position, image] = box;
        return position > 0 && position <= format->boxes() && isUsable(image);
    });
}

QByteArray contentOf(const std::filesystem::path& file) {
    const base::FileDescriptor opened{::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)};
    if (!opened.isOpen() && errno == ENOENT)
        throw NoSuchOrder{"the spool does not have its films any more"};
    if (!opened.isOpen())
        fail("a film in the spool cannot be opened");
    struct stat status {};
    if (::fstat(opened.get(), &status) < 0)
        fail("a film in the spool cannot be read");
    if (!S_ISREG(status.st_mode) || status.st_size > Longest)
        throw NoSuchOrder{"what the spool has is no film"};
    QByteArray content{status.st_size, '\0'};
    for (qsizetype have = 0; have < content.size();) {
        const ssize_t got =
            ::read(opened.get(), content.data() + have, static_cast<std::size_t>(content.size() - have));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            fail("a film in the spool cannot be read");
        if (got == 0)
            throw NoSuchOrder{"a film in the spool is cut off"};
        have += got;
    }
    return content;
}

}  // namespace

void save(const PrintOrder& order, const std::filesystem::path& folder) {
    QJsonObject luts;
    for (const auto& [key, lut] : order.luts)
        luts.insert(text(key), written(lut));
    QJsonArray films;
    for (const Film& film : order.films)
        films.append(written(film));
    const QByteArray content = QJsonDocument{
        QJsonObject{
            {u"calling"_s, text(order.callingAeTitle)},
            {u"originator"_s, text(order.originator)},
            {u"baseUid"_s, text(order.baseUid)},
            {u"colour"_s, order.isColour},
            {u"session"_s, written(order.session)},
            {u"luts"_s, luts},
            {u"films"_s, films}}}.toJson(QJsonDocument::Compact);
    const std::filesystem::path file = folder / FileName;
    const base::FileDescriptor made{
        ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600)};
    if (!made.isOpen())
        fail("a film cannot be put into the spool");
    for (qsizetype done = 0; done < content.size();) {
        const ssize_t written =
            ::write(made.get(), content.data() + done, static_cast<std::size_t>(content.size() - done));
        if (written < 0 && errno != EINTR)
            fail("a film cannot be put into the spool");
        done += std::max<ssize_t>(written, 0);
    }
}

PrintOrder loadOrder(const std::filesystem::path& folder) {
    const QJsonDocument document = QJsonDocument::fromJson(contentOf(folder / FileName));
    if (!document.isObject())
        throw NoSuchOrder{"what the spool has is no film"};
    const QJsonObject object = document.object();
    PrintOrder order{.callingAeTitle = bytes(object[u"calling"]),
                     .originator = bytes(object[u"originator"]),
                     .baseUid = bytes(object[u"baseUid"]),
                     .isColour = object[u"colour"].toBool(),
                     .session = settingsOf(object[u"session"])};
    const QJsonObject luts = object[u"luts"].toObject();
    for (auto entry = luts.begin(); entry != luts.end(); ++entry)
        order.luts.emplace(bytes(entry.key()), lutOf(entry.value().toObject()));
    for (const auto& film : object[u"films"].toArray()) {
        order.films.push_back(filmOf(film.toObject()));
        if (!isUsable(order.films.back()))
            throw NoSuchOrder{"what the spool has is no film"};
    }
    return order;
}

}  // namespace tessaly::tessalyd::films
