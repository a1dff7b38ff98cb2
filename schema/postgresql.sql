-- The configuration database and the archive's tables, for PostgreSQL: what sqlite.sql makes, in this engine's
-- words. Names are not quoted and so fold to lower case, as they do in the programs' statements.
--
-- Flags are small integers and no booleans: programs write numbers into them, and a stored -1 reads as set.

-- Names that differ in case alone are equal, for keys, look-ups and joins. A collation that is not
-- deterministic knows no LIKE and no regular expression: patterns want COLLATE "C".
CREATE COLLATION IF NOT EXISTS nocase (provider = icu, locale = 'und-u-ks-level2', deterministic = false);

-- The version of these tables; schema/Upgrade.cpp says how older ones get there. FilledTo is the instance up to which
-- older rows of the archive have been filled from the objects' files; without a value, all have.
CREATE TABLE SchemaVersion (
    Version  INTEGER NOT NULL,
    FilledTo VARCHAR(64) COLLATE "C"
);

INSERT INTO SchemaVersion (Version) VALUES (4);

CREATE TABLE DicomServer (
    LogLevel     INTEGER NOT NULL DEFAULT 1,
    DumpLevel    INTEGER NOT NULL DEFAULT 0,
    QueryTimeout INTEGER NOT NULL DEFAULT 30
);

CREATE TABLE SiteData (
    Organization VARCHAR(64) NOT NULL,
    BaseUID      VARCHAR(64) NOT NULL
);

CREATE TABLE DicomNodes (
    Name         VARCHAR(16) COLLATE nocase NOT NULL PRIMARY KEY,
    AETitle      VARCHAR(16),
    LocalAETitle VARCHAR(16),
    Host         VARCHAR(64),
    Port         VARCHAR(16),
    Store        SMALLINT NOT NULL DEFAULT 0,
    Query        SMALLINT NOT NULL DEFAULT 0,
    Print        SMALLINT NOT NULL DEFAULT 0
);

CREATE TABLE FtpNodes (
    Name        VARCHAR(16) COLLATE nocase NOT NULL PRIMARY KEY,
    Host        VARCHAR(64),
    UserName    VARCHAR(16),
    UserPwd     VARCHAR(16),
    Destination VARCHAR(128),
    NodeType    VARCHAR(8)
);

CREATE TABLE Port (
    Port           VARCHAR(16) COLLATE nocase NOT NULL PRIMARY KEY,
    AETitle        VARCHAR(16) NOT NULL,
    MaxConnections INTEGER NOT NULL DEFAULT 10,
    Root           VARCHAR(255) NOT NULL,
    CheckCallingAE SMALLINT NOT NULL DEFAULT 0,
    CheckCalledAE  SMALLINT NOT NULL DEFAULT 0,
    SaveCompressed SMALLINT NOT NULL DEFAULT 1
);

CREATE TABLE PortRemoteNodes (
    Port VARCHAR(16) COLLATE nocase NOT NULL,
    Name VARCHAR(16) COLLATE nocase NOT NULL,
    PRIMARY KEY (Port, Name)
);
CREATE INDEX PortRemoteNodesByName ON PortRemoteNodes (Name);

-- Whoever types a fraction into one of the numbers finds it there again, digit by digit.
CREATE TABLE Printers (
    Name           VARCHAR(16) COLLATE nocase NOT NULL PRIMARY KEY,
    AETitle        VARCHAR(16),
    Host           VARCHAR(64),
    Port           VARCHAR(16),
    Priority       VARCHAR(16),
    Medium         VARCHAR(16),
    Destination    VARCHAR(16),
    Copies         NUMERIC,
    Illumination   NUMERIC,
    Reflection     NUMERIC,
    MinDensity     NUMERIC,
    MaxDensity     NUMERIC,
    Border         VARCHAR(16),
    Polarity       VARCHAR(16),
    EmptyDensity   VARCHAR(16),
    Layout         VARCHAR(64),
    FilmSize       VARCHAR(16),
    Resolution     VARCHAR(16),
    Orientation    VARCHAR(16),
    Magnification  VARCHAR(16),
    Smoothing      VARCHAR(16),
    Trim           VARCHAR(16),
    GridSizeDx     NUMERIC,
    GridSizeDy     NUMERIC,
    UserParams     VARCHAR(255),
    ForceBW        SMALLINT,
    DefaultPrinter SMALLINT,
    Force8bit      INTEGER
);

-- "user" repeats the key, so that a listing ordered by it resolves. Without its quotes the word is the session's
-- own user here; db/ quotes it where a statement says it.
CREATE TABLE Users (
    UserName  VARCHAR(16) COLLATE nocase NOT NULL PRIMARY KEY,
    UserPwd   VARCHAR(16),
    DcmUpdate SMALLINT NOT NULL DEFAULT 0,
    DcmDelete SMALLINT NOT NULL DEFAULT 0,
    Move      SMALLINT NOT NULL DEFAULT 0,
    Refert    SMALLINT NOT NULL DEFAULT 0,
    DcmAdmin  SMALLINT NOT NULL DEFAULT 0,
    Signature VARCHAR(32),
    Send      SMALLINT NOT NULL DEFAULT 0,
    Backup    SMALLINT NOT NULL DEFAULT 0,
    Import    SMALLINT NOT NULL DEFAULT 0,
    ROI       SMALLINT NOT NULL DEFAULT 0,
    WLogin    SMALLINT NOT NULL DEFAULT 0,
    ModTags   SMALLINT NOT NULL DEFAULT 0,
    "user"    VARCHAR(16) COLLATE nocase GENERATED ALWAYS AS (UserName) STORED
);

-- The archive. UIDs are digits and dots, so that case never matters there. Its texts compare and sort by their
-- bytes, whatever the database's own language is: queries search by ranges of them. What Name... and NumberInSeries
-- hold stands in sqlite.sql.

CREATE TABLE Patient (
    ID        BIGINT NOT NULL PRIMARY KEY,
    PatientID VARCHAR(64) COLLATE "C" NOT NULL,
    Name      VARCHAR(324) COLLATE "C",
    BirthDate VARCHAR(8) COLLATE "C",
    Sex       VARCHAR(16) COLLATE "C",
    NameAlphabetic  VARCHAR(324) COLLATE "C",
    NameIdeographic VARCHAR(324) COLLATE "C",
    NamePhonetic    VARCHAR(324) COLLATE "C"
);
CREATE UNIQUE INDEX PatientByPatientID ON Patient (PatientID);
CREATE INDEX PatientByName ON Patient (NameAlphabetic, ID);
CREATE INDEX PatientByIdeographicName ON Patient (NameIdeographic, ID);
CREATE INDEX PatientByPhoneticName ON Patient (NamePhonetic, ID);
CREATE INDEX PatientByBirthDate ON Patient (BirthDate, ID);

CREATE TABLE Study (
    StudyInstanceUID VARCHAR(64) COLLATE "C" NOT NULL PRIMARY KEY,
    IDPatient        BIGINT NOT NULL,
    StudyPath        VARCHAR(255) COLLATE "C" NOT NULL,
    StudyID          VARCHAR(16) COLLATE "C",
    StudyDate        VARCHAR(8) COLLATE "C",
    StudyTime        VARCHAR(16) COLLATE "C",
    AccessionNumber  VARCHAR(16) COLLATE "C",
    Description      VARCHAR(64) COLLATE "C",
    ReferringPhysicianName VARCHAR(324) COLLATE "C"
);
CREATE INDEX StudyByPatient ON Study (IDPatient, StudyInstanceUID);
CREATE INDEX StudyByDate ON Study (StudyDate, StudyInstanceUID);
CREATE INDEX StudyByAccessionNumber ON Study (AccessionNumber, StudyInstanceUID);
CREATE INDEX StudyByStudyID ON Study (StudyID, StudyInstanceUID);
CREATE INDEX StudyByDescription ON Study (Description, StudyInstanceUID);

CREATE TABLE Series (
    SeriesInstanceUID VARCHAR(64) COLLATE "C" NOT NULL PRIMARY KEY,
    StudyInstanceUID  VARCHAR(64) COLLATE "C" NOT NULL,
    SeriesDir         VARCHAR(64) COLLATE "C" NOT NULL,
    Modality          VARCHAR(16) COLLATE "C",
    SeriesNumber      VARCHAR(12) COLLATE "C",
    Description       VARCHAR(64) COLLATE "C",
    SeriesDate        VARCHAR(8) COLLATE "C",
    SeriesTime        VARCHAR(16) COLLATE "C",
    BodyPartExamined  VARCHAR(16) COLLATE "C",
    ProtocolName      VARCHAR(64) COLLATE "C"
);
CREATE INDEX SeriesByStudy ON Series (StudyInstanceUID);

CREATE TABLE Image (
    SOPInstanceUID    VARCHAR(64) COLLATE "C" NOT NULL PRIMARY KEY,
    SeriesInstanceUID VARCHAR(64) COLLATE "C" NOT NULL,
    ImageFile         VARCHAR(128) COLLATE "C" NOT NULL,
    SOPClassUID       VARCHAR(64) COLLATE "C",
    TransferSyntaxUID VARCHAR(64) COLLATE "C",
    InstanceNumber    VARCHAR(12) COLLATE "C",
    NumberInSeries    INTEGER NOT NULL DEFAULT 0,
    ContentDate       VARCHAR(8) COLLATE "C",
    ContentTime       VARCHAR(16) COLLATE "C",
    PixelRows         INTEGER,
    PixelColumns      INTEGER,
    NumberOfFrames    INTEGER,
    FileSize          BIGINT
);
CREATE INDEX ImageBySeries ON Image (SeriesInstanceUID, NumberInSeries);

-- The server's jobs; what the columns hold stands in sqlite.sql.

CREATE TABLE Job (
    Number      BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY,
    Kind        VARCHAR(16) COLLATE "C" NOT NULL,
    Target      VARCHAR(64) COLLATE "C" NOT NULL,
    JobKey      VARCHAR(255) COLLATE "C" NOT NULL,
    Subject     VARCHAR(4000) COLLATE "C",
    Spool       VARCHAR(512) COLLATE "C",
    Progress    VARCHAR(4000) COLLATE "C",
    State       INTEGER NOT NULL DEFAULT 0,
    Attempts    INTEGER NOT NULL DEFAULT 0,
    NextAttempt BIGINT NOT NULL,
    LastError   VARCHAR(255) COLLATE "C",
    Created     BIGINT NOT NULL,
    Begun       BIGINT NOT NULL,
    Lane        VARCHAR(96) COLLATE "C",
    Owner       VARCHAR(64) COLLATE "C",
    Lease       BIGINT
);
CREATE UNIQUE INDEX JobByKey ON Job (Kind, JobKey);
CREATE UNIQUE INDEX JobByLane ON Job (Lane);
CREATE INDEX JobByState ON Job (State, NextAttempt);
CREATE INDEX JobBySpool ON Job (Spool);

CREATE TABLE JobItem (
    Number BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY,
    Kind   VARCHAR(16) COLLATE "C" NOT NULL,
    JobKey VARCHAR(255) COLLATE "C" NOT NULL,
    Item   VARCHAR(255) COLLATE "C" NOT NULL,
    Added  BIGINT NOT NULL,
    Taken  INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX JobItemByKey ON JobItem (Kind, JobKey);
