# Headers of the language and of the toolkits, parsed once for all targets that use them. None of this project is
# among them: an edit rebuilds what includes the edited file, and no more.
#
# tessaly_headers(NAME OPTIONS... LINKS... HEADERS...): a set of such headers. A target uses it by
# tessaly_use_headers(); what the set's LINKS define must be defined for the target too, and its OPTIONS be the
# target's, or the compiler parses the headers itself.
file(WRITE ${CMAKE_BINARY_DIR}/empty.cpp "")
function(tessaly_headers name)
  cmake_parse_arguments(arg "" "" "OPTIONS;LINKS;HEADERS" ${ARGN})
  add_library(tessaly_headers_${name} OBJECT ${CMAKE_BINARY_DIR}/empty.cpp)
  target_compile_options(tessaly_headers_${name} PRIVATE ${arg_OPTIONS})
  target_link_libraries(tessaly_headers_${name} PRIVATE tessaly_options ${arg_LINKS})
  target_precompile_headers(tessaly_headers_${name} PRIVATE ${arg_HEADERS})
endfunction()

function(tessaly_use_headers target name)
  target_precompile_headers(${target} REUSE_FROM tessaly_headers_${name})
endfunction()

# Each test would define its own folders for QFINDTESTDATA, which none uses, and could not share the parsed headers.
set_target_properties(Qt6::Test PROPERTIES INTERFACE_COMPILE_DEFINITIONS QT_TESTLIB_LIB)

set(language <algorithm> <array> <atomic> <cerrno> <charconv> <chrono> <cmath> <condition_variable> <cstdint> <cstdio>
  <cstdlib> <cstring> <deque> <exception> <filesystem> <fstream> <functional> <iostream> <limits> <list> <map> <memory>
  <mutex> <numeric> <optional> <set> <span> <sstream> <stdexcept> <stop_token> <string> <string_view> <system_error>
  <thread> <tuple> <type_traits> <unordered_map> <utility> <variant> <vector>)
set(toolkit <dcmtk/config/osconfig.h> <dcmtk/dcmdata/dctk.h> <dcmtk/dcmnet/assoc.h> <dcmtk/dcmnet/dimse.h>
  <dcmtk/oflog/oflog.h>)
set(core <QByteArray> <QCoreApplication> <QDateTime> <QDebug> <QDir> <QElapsedTimer> <QFile> <QFileInfo> <QHash> <QList>
  <QMap> <QObject> <QSet> <QString> <QStringList> <QTemporaryDir> <QTemporaryFile> <QThread> <QTimer> <QVariant>)
set(widgets <QApplication> <QCheckBox> <QComboBox> <QDialog> <QFormLayout> <QGridLayout> <QGroupBox> <QHBoxLayout>
  <QKeyEvent> <QLabel> <QLineEdit> <QListWidget> <QMainWindow> <QMessageBox> <QPushButton> <QSpinBox> <QTabWidget>
  <QTreeWidget> <QVBoxLayout> <QWidget>)

tessaly_headers(language HEADERS ${language})
tessaly_headers(dicom LINKS DCMTK::dcmnet Qt6::Core HEADERS ${toolkit} ${language})
tessaly_headers(widgets LINKS Qt6::Widgets HEADERS ${language} ${core} ${widgets})
set(tests LINKS DCMTK::dcmnet Qt6::DBus Qt6::Network Qt6::Widgets Qt6::Test
  HEADERS ${toolkit} ${language} ${core} ${widgets} <QProcess> <QSignalSpy> <QTest>
    <QtDBus>)  # what is generated from the server's interface includes the whole module
tessaly_headers(tests ${tests})
# For the tests themselves, which take longer to optimise than they run: what they test is optimised.
set(unoptimised $<$<CONFIG:Release>:-O0>)
tessaly_headers(unoptimised_tests OPTIONS ${unoptimised} ${tests})
