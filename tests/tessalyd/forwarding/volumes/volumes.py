"""What nibabel reads of volumes, for the tests; a JSON object on standard output.

volumes.py formula VOLUME PLACES    beside lines `x y z time value`, places in the standard's coordinates
volumes.py compare VOLUME OTHER     every voxel beside the other's at the same place of the world
volumes.py reoriented VOLUME OTHER  every voxel beside the other's, turned to left, front and head
"""
import json
import sys

import nibabel
import numpy
from nibabel import orientations


def values_of(image):
    values = numpy.asarray(image.dataobj, dtype=float)
    return values.reshape(values.shape[:3] + (-1,))


def beside(image, places, times, values):
    """Places in the coordinates of NIfTI."""
    index = nibabel.affines.apply_affine(numpy.linalg.inv(image.affine), places)
    nearest = numpy.rint(index).astype(int)
    voxels = values_of(image)
    inside = numpy.all((nearest >= 0) & (nearest < voxels.shape[:3]), axis=1)
    found = voxels[tuple(nearest[inside].T) + (times[inside],)]
    return {
        "count": len(values),
        "voxels": int(voxels.size),
        "outside": int(numpy.sum(~inside)),
        "away": float(numpy.max(numpy.abs(index - nearest))),
        "different": int(numpy.sum(found != values[inside])),
        "most": float(numpy.max(numpy.abs(found - values[inside]))),
    }


def formula(image, file):
    lines = numpy.loadtxt(file)
    return beside(image, lines[:, :3] * [-1, -1, 1], lines[:, 3].astype(int), lines[:, 4])


def compare(image, file):
    other = nibabel.load(file)
    values = values_of(other)
    index = numpy.indices(values.shape).reshape(4, -1).T
    places = nibabel.affines.apply_affine(other.affine, index[:, :3])
    return beside(image, places, index[:, 3], values.reshape(-1))


def reoriented(image, file):
    other = nibabel.load(file)
    turn = orientations.ornt_transform(
        orientations.io_orientation(other.affine), orientations.axcodes2ornt(("L", "A", "S")))
    turned = other.as_reoriented(turn)
    mine, theirs = values_of(image), values_of(turned)
    alike = mine.shape == theirs.shape
    return {
        "shapes": [list(mine.shape), list(theirs.shape)],
        "different": int(numpy.sum(mine != theirs)) if alike else -1,
        "apart": [float(numpy.max(numpy.abs(
            numpy.array(image.header.get_zooms()[:3]) - numpy.array(turned.header.get_zooms()[:3]))))],
    }


def described(image):
    header = image.header
    told = {"type": str(header.get_data_dtype()), "shape": list(image.shape),
            "zooms": [float(zoom) for zoom in header.get_zooms()],
            "axes": "".join(nibabel.aff2axcodes(image.affine))}
    if isinstance(image, nibabel.Nifti1Image):
        told |= {"qform": int(header["qform_code"]), "sform": int(header["sform_code"]),
                 "units": int(header["xyzt_units"]), "slope": float(image.dataobj.slope),
                 "inter": float(image.dataobj.inter)}
        if told["qform"]:
            told["between"] = float(numpy.max(numpy.abs(header.get_qform() - header.get_sform())))
    return told


what, volume, *rest = sys.argv[1:]
loaded = nibabel.load(volume)
print(json.dumps(described(loaded) | {"formula": formula, "compare": compare, "reoriented": reoriented}[what](
    loaded, *rest)))
