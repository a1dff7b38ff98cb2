-- The configuration database and the archive's tables, for SQLite.
--
-- Widths are those that the console's forms enforce; SQLite itself only records them. Key columns compare
-- without case, as administrators expect of names and as the console's look-ups rely on.

-- With a write-ahead log the console reads while the server writes; the file keeps the mode.
PRAGMA journal_mode = WAL;

-- The version of these tables; schema/Upgrade.cpp says how older ones get there. FilledTo is the instance up to which
-- older rows of the archive have been filled from the objects' files; without a value, all have.
CREATE TABLE SchemaVersion (
    Version  INTEGER NOT NULL,
    FilledTo VARCHAR(64)
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
    Name         VARCHAR(16) COLLATE NOCASE NOT NULL PRIMARY KEY,
    AETitle      VARCHAR(16),
    LocalAETitle VARCHAR(16),
    Host         VARCHAR(64),
    Port         VARCHAR(16),
    Store        INTEGER NOT NULL DEFAULT 0,
    Query        INTEGER NOT NULL DEFAULT 0,
    Print        INTEGER NOT NULL DEFAULT 0
);

CREATE TABLE FtpNodes (
    Name        VARCHAR(16) COLLATE NOCASE NOT NULL PRIMARY KEY,
    Host        VARCHAR(64),
    UserName    VARCHAR(16),
    UserPwd     VARCHAR(16),
    Destination VARCHAR(128),
    NodeType    VARCHAR(8)
);

CREATE TABLE Port (
    Port           VARCHAR(16) COLLATE NOCASE NOT NULL PRIMARY KEY,
    AETitle        VARCHAR(16) NOT NULL,
    MaxConnections INTEGER NOT NULL DEFAULT 10,
    Root           VARCHAR(255) NOT NULL,
    CheckCallingAE BIT NOT NULL DEFAULT 0,
    CheckCalledAE  BIT NOT NULL DEFAULT 0,
    SaveCompressed BIT NOT NULL DEFAULT 1
);

CREATE TABLE PortRemoteNodes (
    Port VARCHAR(16) COLLATE NOCASE NOT NULL,
    Name VARCHAR(16) COLLATE NOCASE NOT NULL,
    PRIMARY KEY (Port, Name)
);
CREATE INDEX PortRemoteNodesByName ON PortRemoteNodes (Name);

-- Whoever types a fraction into one of the numbers finds it there again: also where an older file says INTEGER, which is
-- the same to this engine.
CREATE TABLE Printers (
    Name           VARCHAR(16) COLLATE NOCASE NOT NULL PRIMARY KEY,
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
    ForceBW        BIT,
    DefaultPrinter BIT,
    Force8bit      INTEGER
);

-- User repeats the key, so that a listing ordered by it resolves.
CREATE TABLE Users (
    UserName  VARCHAR(16) COLLATE NOCASE NOT NULL PRIMARY KEY,
    UserPwd   VARCHAR(16),
    DcmUpdate BIT NOT NULL DEFAULT 0,
    DcmDelete BIT NOT NULL DEFAULT 0,
    Move      BIT NOT NULL DEFAULT 0,
    Refert    BIT NOT NULL DEFAULT 0,
    DcmAdmin  BIT NOT NULL DEFAULT 0,
    Signature VARCHAR(32),
    Send      BIT NOT NULL DEFAULT 0,
    Backup    BIT NOT NULL DEFAULT 0,
    Import    BIT NOT NULL DEFAULT 0,
    ROI       BIT NOT NULL DEFAULT 0,
    WLogin    BIT NOT NULL DEFAULT 0,
    ModTags   BIT NOT NULL DEFAULT 0,
    User      VARCHAR(16) COLLATE NOCASE GENERATED ALWAYS AS (UserName) VIRTUAL
);

-- The archive. UIDs are digits and dots, so that case never matters there. Texts compare by their bytes: queries
-- search by ranges of them. The Name... columns hold the groups of the patient's name without case and accents;
-- NumberInSeries is InstanceNumber for sorting. Both are the server's own.

CREATE TABLE Patient (
    ID        INTEGER NOT NULL PRIMARY KEY,
    PatientID VARCHAR(64) NOT NULL,
    Name      VARCHAR(324),
    BirthDate VARCHAR(8),
    Sex       VARCHAR(16),
    NameAlphabetic  VARCHAR(324),
    NameIdeographic VARCHAR(324),
    NamePhonetic    VARCHAR(324)
);
CREATE UNIQUE INDEX PatientByPatientID ON Patient (PatientID);
CREATE INDEX PatientByName ON Patient (NameAlphabetic, ID);
CREATE INDEX PatientByIdeographicName ON Patient (NameIdeographic, ID);
CREATE INDEX PatientByPhoneticName ON Patient (NamePhonetic, ID);
CREATE INDEX PatientByBirthDate ON Patient (BirthDate, ID);

CREATE TABLE Study (
    StudyInstanceUID VARCHAR(64) NOT NULL PRIMARY KEY,
    IDPatient        INTEGER NOT NULL,
    StudyPath        VARCHAR(255) NOT NULL,
    StudyID          VARCHAR(16),
    StudyDate        VARCHAR(8),
    StudyTime        VARCHAR(16),
    AccessionNumber  VARCHAR(16),
    Description      VARCHAR(64),
    ReferringPhysicianName VARCHAR(324)
);
CREATE INDEX StudyByPatient ON Study (IDPatient, StudyInstanceUID);
CREATE INDEX StudyByDate ON Study (StudyDate, StudyInstanceUID);
CREATE INDEX StudyByAccessionNumber ON Study (AccessionNumber, StudyInstanceUID);
CREATE INDEX StudyByStudyID ON Study (StudyID, StudyInstanceUID);
CREATE INDEX StudyByDescription ON Study (Description, StudyInstanceUID);

CREATE TABLE Series (
    SeriesInstanceUID VARCHAR(64) NOT NULL PRIMARY KEY,
    StudyInstanceUID  VARCHAR(64) NOT NULL,
    SeriesDir         VARCHAR(64) NOT NULL,
    Modality          VARCHAR(16),
    SeriesNumber      VARCHAR(12),
    Description       VARCHAR(64),
    SeriesDate        VARCHAR(8),
    SeriesTime        VARCHAR(16),
    BodyPartExamined  VARCHAR(16),
    ProtocolName      VARCHAR(64)
);
CREATE INDEX SeriesByStudy ON Series (StudyInstanceUID);

CREATE TABLE Image (
    SOPInstanceUID    VARCHAR(64) NOT NULL PRIMARY KEY,
    SeriesInstanceUID VARCHAR(64) NOT NULL,
    ImageFile         VARCHAR(128) NOT NULL,
    SOPClassUID       VARCHAR(64),
    TransferSyntaxUID VARCHAR(64),
    InstanceNumber    VARCHAR(12),
    NumberInSeries    INTEGER NOT NULL DEFAULT 0,
    ContentDate       VARCHAR(8),
    ContentTime       VARCHAR(16),
    PixelRows         INTEGER,
    PixelColumns      INTEGER,
    NumberOfFrames    INTEGER,
    FileSize          INTEGER
);
CREATE INDEX ImageBySeries ON Image (SeriesInstanceUID, NumberInSeries);

-- Work of the server that outlives its associations and its process. All times are seconds since 1970 by the engine's
-- clock. State: 0 waiting, 1 running, 2 done, 3 given up, 4 uncertain; NextAttempt is that of a waiting job, of one
-- that is done the time when it was. Lane stands while the job runs: of each lane one does at most.
CREATE TABLE Job (
    Number      INTEGER PRIMARY KEY AUTOINCREMENT,
    Kind        VARCHAR(16) NOT NULL,
    Target      VARCHAR(64) NOT NULL,
    JobKey      VARCHAR(255) NOT NULL,
    Subject     VARCHAR(4000),
    Spool       VARCHAR(512),
    Progress    VARCHAR(4000),
    State       INTEGER NOT NULL DEFAULT 0,
    Attempts    INTEGER NOT NULL DEFAULT 0,
    NextAttempt INTEGER NOT NULL,
    LastError   VARCHAR(255),
    Created     INTEGER NOT NULL,
    Begun       INTEGER NOT NULL,
    Lane        VARCHAR(96),
    Owner       VARCHAR(64),
    Lease       INTEGER
);
CREATE UNIQUE INDEX JobByKey ON Job (Kind, JobKey);
CREATE UNIQUE INDEX JobByLane ON Job (Lane);
CREATE INDEX JobByState ON Job (State, NextAttempt);
CREATE INDEX JobBySpool ON Job (Spool);

-- What is added to a job while it waits. Taken: an attempt has begun with it.
CREATE TABLE JobItem (
    Number INTEGER PRIMARY KEY AUTOINCREMENT,
    Kind   VARCHAR(16) NOT NULL,
    JobKey VARCHAR(255) NOT NULL,
    Item   VARCHAR(255) NOT NULL,
    Added  INTEGER NOT NULL,
    Taken  INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX JobItemByKey ON JobItem (Kind, JobKey);
