#include "network/NodesPage.h"

#include <QtWidgets>

namespace tessaly::network {

using namespace Qt::StringLiterals;

NodesPage::NodesPage([[maybe_unused]] MainWindowOperations& window, QWidget* parent)
    : ListPanel(u"lstNodes"_s,
                {{.title = u"Name"_s},
                 {.title = u"Host"_s},
                 {.title = u"Port"_s},
                 {.title = u"AE_Title"_s},
                 {.title = u"Local server"_s},
                 {.title = u"Storage"_s},
                 {.title = u"Query"_s},
                 {.title = u"Print"_s}},
                {.add = {u"cmdAddNode"_s, u"Add..."_s},
                 .modify = {u"cmdModifyNode"_s, u"Modify..."_s},
                 .remove = {u"cmdDelNode"_s, u"Delete"_s}},
                parent),
      window_(window) {
    (void)window_;
}

void NodesPage::LoadNodes() {}

}  // namespace tessaly::network
