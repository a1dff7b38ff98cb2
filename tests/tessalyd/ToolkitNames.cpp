#include "tests/tessalyd/ToolkitNames.h"

#include <dcmtk/dcmnet/dul.h>
#include <dcmtk/dcmnet/lst.h>
#include <dcmtk/ofstd/ofstd.h>

#include <string_view>

#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::test {

void nameForToolkit(T_ASC_Parameters& parameters) {
    for (LST_HEAD** const list : {&parameters.DULparams.requestedPresentationContext,
                                  &parameters.DULparams.acceptedPresentationContext}) {
        if (*list == nullptr)
            continue;
        auto* context = static_cast<DUL_PRESENTATIONCONTEXT*>(LST_Head(list));
        LST_Position(list, context);
        for (; context != nullptr; context = static_cast<DUL_PRESENTATIONCONTEXT*>(LST_Next(list))) {
            const dicom::TransferSyntax syntax{std::string_view{context->acceptedTransferSyntax}};
            if (syntax.isKnown())
                OFStandard::strlcpy(context->acceptedTransferSyntax,
                                    DcmXfer{syntax.toolkitName()}.getXferID(),
                                    sizeof context->acceptedTransferSyntax);
        }
    }
}

}  // namespace tessaly::test
