#include "tessalyd/services/query/IdentifierParser.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmnet/dimse.h>

#include <map>
#include <string>

#include "dicom/data/DataSetWalk.h"
#include "dicom/data/ElementWalk.h"
#include "dicom/data/TextDecoder.h"
#include "tessalyd/association/Service.h"

namespace tessaly::tessalyd {

namespace {

RequestFailure refused(const char* comment) {
    return {STATUS_FIND_Failed_UnableToProcess, comment};
}

struct Element {
    DcmEVR vr = EVR_UNKNOWN;
    bool littleEndian = true;
    std::string value;
};
using Elements = std::map<DcmTagKey, Element>;

/// Keeps the elements of the data set itself.
class Collector final : public dicom::ElementVisitor {
  public:
    [[nodiscard]] bool element(const dicom::ElementHead& head) override {
        current_ = nullptr;
        if (head.tag == DCM_ItemDelimitationItem || head.tag == DCM_SequenceDelimitationItem)
            return true;
        if (++count_ > MostIdentifierElements)
            return false;
        if (head.depth == 0 && head.tag != DCM_Item) {
            const auto [entry, isFirst] = elements_.try_emplace(head.tag);
            if (isFirst) {
                entry->second.vr = dicom::representation(head);
                entry->second.littleEndian = head.littleEndian || head.vr == EVR_UN;
                current_ = &entry->second;
            }
        }
        return true;
    }
    void value(std::span<const char> piece) override {
        if (current_ != nullptr)
            current_->value.append(piece.begin(), piece.end());
    }

    [[nodiscard]] const Elements& elements() const noexcept { return elements_; }
    [[nodiscard]] bool hasTooMany() const noexcept { return count_ > MostIdentifierElements; }

  private:
    Elements elements_;
    Element* current_ = nullptr;
    std::size_t count_ = 0;
};

/// Numbers are those of the only key that has any, Rows and the like; no other value is compared.
void setValue(DcmElement& element, const Element& read) {
    if (dicom::isText(read.vr))
        element.putString(read.value.data(), static_cast<Uint32>(read.value.size()));
    else if (const auto number = dicom::unsignedShort(read.value, read.littleEndian);
             number && read.vr == EVR_US)
        element.putUint16(*number, 0);
}

}  // namespace

std::unique_ptr<DcmDataset> parseIdentifier(std::span<const char> bytes, dicom::TransferSyntax syntax) {
    Collector collector;
    dicom::ElementWalk walk{syntax, dicom::ElementWalk::Reading::ByRepresentation, collector};
    walk.take(bytes);
    if (walk.isTooDeep())
        throw refused("Sequences of the identifier are nested too deeply");
    if (collector.hasTooMany())
        throw refused("The identifier has too many elements");
    if (walk.isIncomplete() || dicom::isTruncated(bytes, syntax))
        throw refused("The identifier is cut off");
    auto dataset = std::make_unique<DcmDataset>();
    for (const auto& [tag, read] : collector.elements()) {
        DcmElement* made = nullptr;
        if (DcmItem::newDicomElementWithVR(made, DcmTag{tag, DcmVR{read.vr}}).bad() || made == nullptr)
            throw refused("The identifier cannot be read");
        std::unique_ptr<DcmElement> element{made};
        setValue(*element, read);
        if (dataset->insert(element.get()).bad())
            throw refused("The identifier cannot be read");
        static_cast<void>(element.release());
    }
    return dataset;
}

}  // namespace tessaly::tessalyd
