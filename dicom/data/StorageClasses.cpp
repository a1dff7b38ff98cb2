#include "dicom/data/StorageClasses.h"

#include <algorithm>
#include <array>
#include <unordered_set>

#include "dicom/data/ObjectHeader.h"

namespace tessaly::dicom {

namespace {

using namespace std::string_view_literals;

// docs/make-tables makes the conformance statement's table of these lines.
// clang-format off
constexpr std::array Table{
    StorageClass{"1.2.840.10008.5.1.1.27", "Stored Print Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.1.29", "Hardcopy Grayscale Image Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.1.30", "Hardcopy Color Image Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.1", "Computed Radiography Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.1.1", "Digital X-Ray Image Storage - For Presentation"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.1.1.1", "Digital X-Ray Image Storage - For Processing"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.1.2", "Digital Mammography X-Ray Image Storage - For Presentation"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.1.2.1", "Digital Mammography X-Ray Image Storage - For Processing"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.1.3", "Digital Intra-Oral X-Ray Image Storage - For Presentation"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.1.3.1", "Digital Intra-Oral X-Ray Image Storage - For Processing"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.2", "CT Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.2.1", "Enhanced CT Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.2.2", "Legacy Converted Enhanced CT Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.2.3", "CT Image Storage - For Processing"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.2.4", "Enhanced CT Image Storage - For Processing"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.2.5", "Legacy Converted Enhanced CT Image Storage - For Processing"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.3", "Ultrasound Multi-frame Image Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.3.1", "Ultrasound Multi-frame Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.4", "MR Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.4.1", "Enhanced MR Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.4.2", "MR Spectroscopy Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.4.3", "Enhanced MR Color Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.4.4", "Legacy Converted Enhanced MR Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.5", "Nuclear Medicine Image Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.6", "Ultrasound Image Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.6.1", "Ultrasound Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.6.2", "Enhanced US Volume Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.6.3", "Photoacoustic Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.7", "Secondary Capture Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.7.1", "Multi-frame Single Bit Secondary Capture Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.7.2", "Multi-frame Grayscale Byte Secondary Capture Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.7.3", "Multi-frame Grayscale Word Secondary Capture Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.7.4", "Multi-frame True Color Secondary Capture Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.8", "Standalone Overlay Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9", "Standalone Curve Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.1", "Waveform Storage (trial)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.1.1", "12-lead ECG Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.1.2", "General ECG Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.1.3", "Ambulatory ECG Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.1.4", "General 32-bit ECG Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.2.1", "Hemodynamic Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.3.1", "Cardiac Electrophysiology Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.4.1", "Basic Voice Audio Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.4.2", "General Audio Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.5.1", "Arterial Pulse Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.6.1", "Respiratory Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.6.2", "Multi-channel Respiratory Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.7.1", "Routine Scalp Electroencephalogram Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.7.2", "Electromyogram Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.7.3", "Electrooculogram Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.7.4", "Sleep Electroencephalogram Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.8.1", "Body Position Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.100.1", "Waveform Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.9.100.2", "Waveform Acquisition Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.10", "Standalone Modality LUT Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11", "Standalone VOI LUT Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.1", "Grayscale Softcopy Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.2", "Color Softcopy Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.3", "Pseudo-Color Softcopy Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.4", "Blending Softcopy Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.5", "XA/XRF Grayscale Softcopy Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.6", "Grayscale Planar MPR Volumetric Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.7", "Compositing Planar MPR Volumetric Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.8", "Advanced Blending Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.9", "Volume Rendering Volumetric Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.10", "Segmented Volume Rendering Volumetric Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.11", "Multiple Volume Rendering Volumetric Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.11.12", "Variable Modality LUT Softcopy Presentation State Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.12.1", "X-Ray Angiographic Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.12.1.1", "Enhanced XA Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.12.2", "X-Ray Radiofluoroscopic Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.12.2.1", "Enhanced XRF Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.12.3", "X-Ray Angiographic Bi-Plane Image Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.13.1.1", "X-Ray 3D Angiographic Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.13.1.2", "X-Ray 3D Craniofacial Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.13.1.3", "Breast Tomosynthesis Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.13.1.4", "Breast Projection X-Ray Image Storage - For Presentation"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.13.1.5", "Breast Projection X-Ray Image Storage - For Processing"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.14.1", "Intravascular Optical Coherence Tomography Image Storage - For Presentation"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.14.2", "Intravascular Optical Coherence Tomography Image Storage - For Processing"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.20", "Nuclear Medicine Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.30", "Parametric Map Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.66", "Raw Data Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.66.1", "Spatial Registration Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.66.2", "Spatial Fiducials Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.66.3", "Deformable Spatial Registration Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.66.4", "Segmentation Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.66.5", "Surface Segmentation Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.66.6", "Tractography Results Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.66.7", "Label Map Segmentation Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.66.8", "Height Map Segmentation Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.67", "Real World Value Mapping Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.68.1", "Surface Scan Mesh Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.68.2", "Surface Scan Point Cloud Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1", "VL Image Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.1", "VL Endoscopic Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.1.1", "Video Endoscopic Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.2", "VL Microscopic Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.2.1", "Video Microscopic Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.3", "VL Slide Coordinates Microscopic Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.4", "VL Photographic Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.4.1", "Video Photographic Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.5.1", "Ophthalmic Photography 8 Bit Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.5.2", "Ophthalmic Photography 16 Bit Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.5.3", "Stereometric Relationship Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.5.4", "Ophthalmic Tomography Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.5.5", "Wide Field Ophthalmic Photography Stereographic Projection Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.5.6", "Wide Field Ophthalmic Photography 3D Coordinates Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.5.7", "Ophthalmic Optical Coherence Tomography En Face Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.5.8", "Ophthalmic Optical Coherence Tomography B-scan Volume Analysis Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.6", "VL Whole Slide Microscopy Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.7", "Dermoscopic Photography Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.8", "Confocal Microscopy Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.1.9", "Confocal Microscopy Tiled Pyramidal Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.77.2", "VL Multi-frame Image Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.78.1", "Lensometry Measurements Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.78.2", "Autorefraction Measurements Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.78.3", "Keratometry Measurements Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.78.4", "Subjective Refraction Measurements Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.78.5", "Visual Acuity Measurements Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.78.6", "Spectacle Prescription Report Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.78.7", "Ophthalmic Axial Measurements Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.78.8", "Intraocular Lens Calculations Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.79.1", "Macular Grid Thickness and Volume Report Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.80.1", "Ophthalmic Visual Field Static Perimetry Measurements Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.81.1", "Ophthalmic Thickness Map Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.82.1", "Corneal Topography Map Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.1", "SR Text Storage (trial)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.2", "SR Audio Storage (trial)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.3", "SR Detail Storage (trial)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.4", "SR Comprehensive Storage (trial)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.11", "Basic Text SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.22", "Enhanced SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.33", "Comprehensive SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.34", "Comprehensive 3D SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.35", "Extensible SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.40", "Procedure Log Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.50", "Mammography CAD SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.59", "Key Object Selection Document Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.65", "Chest CAD SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.67", "X-Ray Radiation Dose SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.68", "Radiopharmaceutical Radiation Dose SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.69", "Colon CAD SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.70", "Implantation Plan SR Document Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.71", "Acquisition Context SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.72", "Simplified Adult Echo SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.73", "Patient Radiation Dose SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.74", "Planned Imaging Agent Administration SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.75", "Performed Imaging Agent Administration SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.76", "Enhanced X-Ray Radiation Dose SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.88.77", "Waveform Annotation SR Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.90.1", "Content Assessment Results Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.91.1", "Microscopy Bulk Simple Annotations Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.104.1", "Encapsulated PDF Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.104.2", "Encapsulated CDA Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.104.3", "Encapsulated STL Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.104.4", "Encapsulated OBJ Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.104.5", "Encapsulated MTL Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.128", "Positron Emission Tomography Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.128.1", "Legacy Converted Enhanced PET Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.129", "Standalone PET Curve Storage (retired)"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.130", "Enhanced PET Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.131", "Basic Structured Display Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.200.2", "CT Performed Procedure Protocol Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.200.8", "XA Performed Procedure Protocol Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.1", "RT Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.2", "RT Dose Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.3", "RT Structure Set Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.4", "RT Beams Treatment Record Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.5", "RT Plan Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.6", "RT Brachy Treatment Record Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.7", "RT Treatment Summary Record Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.8", "RT Ion Plan Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.9", "RT Ion Beams Treatment Record Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.10", "RT Physician Intent Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.11", "RT Segment Annotation Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.12", "RT Radiation Set Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.13", "C-Arm Photon-Electron Radiation Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.14", "Tomotherapeutic Radiation Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.15", "Robotic-Arm Radiation Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.16", "RT Radiation Record Set Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.17", "RT Radiation Salvage Record Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.18", "Tomotherapeutic Radiation Record Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.19", "C-Arm Photon-Electron Radiation Record Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.20", "Robotic Radiation Record Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.21", "RT Radiation Set Delivery Instruction Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.22", "RT Treatment Preparation Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.23", "Enhanced RT Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.24", "Enhanced Continuous RT Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.481.25", "RT Patient Position Acquisition Instruction Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.501.1", "DICOS CT Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.501.2.1", "DICOS Digital X-Ray Image Storage - For Presentation"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.501.2.2", "DICOS Digital X-Ray Image Storage - For Processing"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.501.3", "DICOS Threat Detection Report Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.501.4", "DICOS 2D AIT Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.501.5", "DICOS 3D AIT Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.501.6", "DICOS Quadrupole Resonance Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.601.1", "DICONDE Eddy Current Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.601.2", "DICONDE Eddy Current Multi-frame Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.601.3", "DICONDE Thermography Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.601.4", "DICONDE Thermography Multi-frame Image Storage"},
    StorageClass{"1.2.840.10008.5.1.4.1.1.601.5", "DICONDE Ultrasound Waveform Storage"},
    StorageClass{"1.2.840.10008.5.1.4.34.1", "RT Beams Delivery Instruction Storage (trial)"},
    StorageClass{"1.2.840.10008.5.1.4.34.7", "RT Beams Delivery Instruction Storage"},
    StorageClass{"1.2.840.10008.5.1.4.34.10", "RT Brachy Application Setup Delivery Instruction Storage"},
};
// clang-format on

constexpr auto Standard = "1.2.840.10008."sv;
constexpr auto StandardStorage = "1.2.840.10008.5.1.4.1.1."sv;

/// Storage classes below that root whose objects have no patient or no study: the tables have no place for
/// them. Those with another root need no line, as nothing of the standard's outside the table is taken there.
constexpr std::array NotForPatients{
    "1.2.840.10008.5.1.4.1.1.200.1"sv,  // CT defined procedure protocol
    "1.2.840.10008.5.1.4.1.1.200.3"sv,  // protocol approval
    "1.2.840.10008.5.1.4.1.1.200.7"sv,  // XA defined procedure protocol
    "1.2.840.10008.5.1.4.1.1.201.1"sv,  // inventory
};

}  // namespace

std::span<const StorageClass> storageClasses() noexcept {
    return Table;
}

bool isStandardStorage(std::string_view uid) {
    // Asked several times for each context of each association.
    static const std::unordered_set<std::string_view> known = [] {
        std::unordered_set<std::string_view> uids;
        for (const StorageClass& one : Table)
            uids.insert(one.uid);
        return uids;
    }();
    return known.contains(uid);
}

bool isStored(const char* uid) {
    const std::string_view name{uid};
    if (isStandardStorage(name))
        return true;
    if (name.starts_with(StandardStorage))
        return isUid(name) &&
               std::find(NotForPatients.begin(), NotForPatients.end(), name) == NotForPatients.end();
    return isUid(name) && !name.starts_with(Standard);
}

}  // namespace tessaly::dicom
