#pragma once

#include <QString>

namespace tessaly::test {

/// What both ends of the toolkit's print programs read; %FOLDER% is a folder of their own.
inline const QString PrintToolsConfiguration = QStringLiteral(
    uR"(
[[GENERAL]]
[APPLICATION]
LogDirectory = %FOLDER%
[PRINT]
Spooler = /usr/bin/dcmprscu
Server = /usr/bin/dcmprscp
Directory = %FOLDER%
DetailedLog = true
DeletePrintJobs = true
[DATABASE]
Directory = %FOLDER%
[LUT]
Directory = %FOLDER%
[NETWORK]
aetitle = STATION
[[COMMUNICATION]]
[PEER]
type = %TYPE%
hostname = localhost
port = %PORT%
description = peer
aetitle = PRINTER
DisplayFormat=1,1\1,2\2,1\2,2
FilmSizeID = 8INX10IN\14INX17IN
MediumType = PAPER\BLUE FILM
FilmDestination = MAGAZINE\PROCESSOR
MagnificationType = REPLICATE\BILINEAR\CUBIC\NONE
SmoothingType = NONE
BorderDensity = BLACK\WHITE
EmptyImageDensity = BLACK\WHITE
MaxDensity = 320\300
MinDensity = 20
ResolutionID = STANDARD\HIGH
Supports12Bit = true
SupportsPresentationLUT = true
SupportsTrim = true
SupportsImageSize = true
[[VOI]]
)");

}  // namespace tessaly::test
