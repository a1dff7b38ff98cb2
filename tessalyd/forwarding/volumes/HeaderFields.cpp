#include "tessalyd/forwarding/volumes/HeaderFields.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <vector>

namespace tessaly::tessalyd::volumes {

namespace {

struct Place {
    DcmTagKey group;  ///< sequence of a functional group; 0000,0000: the object itself, ffff,ffff: any group
    DcmTagKey tag;
    Field field;
};

const DcmTagKey AnyGroup{0xffff, 0xffff};

const std::vector<Place>& places() {
    static const std::vector<Place> all{
        {OfObject, DCM_ImageType, Field::Type},
        {OfObject, DCM_AcquisitionDate, Field::AcquisitionDate},
        {OfObject, DCM_AcquisitionDateTime, Field::AcquisitionDateTime},
        {OfObject, DCM_AcquisitionTime, Field::AcquisitionTime},
        {OfObject, DCM_SliceThickness, Field::SliceThickness},
        {OfObject, DCM_RepetitionTime, Field::RepetitionTime},
        {OfObject, DCM_EchoTime, Field::EchoTime},
        {OfObject, DCM_SpacingBetweenSlices, Field::SliceSpacing},
        {OfObject, DCM_InstanceNumber, Field::InstanceNumber},
        {OfObject, DCM_ImagePositionPatient, Field::Position},
        {OfObject, DCM_ImageOrientationPatient, Field::Orientation},
        {OfObject, DCM_TemporalPositionIdentifier, Field::TemporalPosition},
        {OfObject, DCM_SamplesPerPixel, Field::SamplesPerPixel},
        {OfObject, DCM_PhotometricInterpretation, Field::Photometric},
        {OfObject, DCM_NumberOfFrames, Field::Frames},
        {OfObject, DCM_Rows, Field::Rows},
        {OfObject, DCM_Columns, Field::Columns},
        {OfObject, DCM_PixelSpacing, Field::Spacing},
        {OfObject, DCM_BitsAllocated, Field::BitsAllocated},
        {OfObject, DCM_BitsStored, Field::BitsStored},
        {OfObject, DCM_HighBit, Field::HighBit},
        {OfObject, DCM_PixelRepresentation, Field::Representation},
        {OfObject, DCM_RescaleIntercept, Field::Intercept},
        {OfObject, DCM_RescaleSlope, Field::Slope},
        {AnyGroup, DCM_FrameType, Field::Type},
        {DCM_PlanePositionSequence, DCM_ImagePositionPatient, Field::Position},
        {DCM_PlaneOrientationSequence, DCM_ImageOrientationPatient, Field::Orientation},
        {DCM_PixelMeasuresSequence, DCM_PixelSpacing, Field::Spacing},
        {DCM_PixelMeasuresSequence, DCM_SliceThickness, Field::SliceThickness},
        {DCM_PixelMeasuresSequence, DCM_SpacingBetweenSlices, Field::SliceSpacing},
        {DCM_MREchoSequence, DCM_EffectiveEchoTime, Field::EchoTime},
        {DCM_MRTimingAndRelatedParametersSequence, DCM_RepetitionTime, Field::RepetitionTime},
        {DCM_PixelValueTransformationSequence, DCM_RescaleSlope, Field::Slope},
        {DCM_PixelValueTransformationSequence, DCM_RescaleIntercept, Field::Intercept},
        {DCM_FrameContentSequence, DCM_TemporalPositionIndex, Field::TemporalPosition},
        {DCM_FrameContentSequence, DCM_FrameAcquisitionDateTime, Field::AcquisitionDateTime},
    };
    return all;
}

}  // namespace

std::optional<Field> fieldOf(const DcmTagKey& group, const DcmTagKey& tag) {
    const bool isObject = group == OfObject;
    for (const Place& place : places())
        if (place.tag == tag && (place.group == group || (!isObject && place.group == AnyGroup)))
            return place.field;
    return std::nullopt;
}

}  // namespace tessaly::tessalyd::volumes
