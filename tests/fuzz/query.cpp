// Identifiers, and what their keys match.

#include <dcmtk/dcmdata/dctk.h>

#include <QUtf8StringView>
#include <array>

#include "dicom/data/NameFolding.h"
#include "dicom/data/Padding.h"
#include "tessalyd/search/SearchStatement.h"
#include "tessalyd/services/query/IdentifierParser.h"
#include "tessalyd/services/query/QueryIdentifier.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/SilentToolkit.h"

namespace {

using namespace tessaly::dicom;
using namespace tessaly::tessalyd;
using tessaly::fuzz::require;

/// A statement consists of what is in this program, whatever was asked.
void checkStatements(const ArchiveQuery& query) {
    for (const SearchPass& pass : planSearch(query).passes) {
        for (const SearchPass::Statement* statement : {&pass.firstPage, &pass.otherPages}) {
            require(statement->text.find_first_of("'\\;%-\"") == std::string::npos);
            for (const std::string& value : statement->values)
                require(QUtf8StringView{value.data(), static_cast<qsizetype>(value.size())}.isValidUtf8());
        }
    }
}

bool isWithin(const IndexCondition& indexCondition, const std::string& value) {
    const auto& values = indexCondition.values;
    switch (indexCondition.kind) {
        case IndexCondition::Kind::OneOf:
            return std::find(values.begin(), values.end(), value) != values.end();
        case IndexCondition::Kind::Between:
            return values.at(0) <= value && value <= values.at(1);
        case IndexCondition::Kind::Prefix:
            return values.at(0) <= value && value < values.at(1);
        case IndexCondition::Kind::From:
            return values.at(0) <= value;
        case IndexCondition::Kind::Until:
            return value <= values.at(0);
        case IndexCondition::Kind::Null:
            return false;
    }
    return false;
}

/// What a key matches is never narrowed out.
void checkKeys(const ArchiveQuery& query, const std::string& stored) {
    const auto groups = foldedGroups(stored);
    for (const ArchiveQuery::Key& key : query.keys) {
        const auto found = key.match.matches(stored);
        if (!found || key.match.alternatives().empty())
            continue;
        const IndexCondition& indexCondition = key.match.alternatives().at(*found);
        if (key.key->matching == Matching::Name)
            require(isWithin(indexCondition, groups.at(static_cast<std::size_t>(indexCondition.column))));
        else if (key.key->matching == Matching::Date)
            require(isWithin(indexCondition, stored) || stored.find('.') != std::string::npos);
        else
            require(isWithin(indexCondition, stored));
    }
}

}  // namespace

/// The first part is a stored value, the rest an identifier as it comes over the wire, whose first byte
/// chooses the model, what is negotiated and the transfer syntax.
void tessaly::fuzz::tryInput(std::string_view input) {
    silenceToolkit();
    const std::string part = takePart(input);
    if (input.empty())
        return;
    const auto choice = static_cast<unsigned char>(input.front());
    input.remove_prefix(1);
    std::unique_ptr<DcmDataset> dataset;
    try {
        constexpr std::array Syntaxes{EXS_LittleEndianExplicit, EXS_LittleEndianImplicit,
                                      EXS_BigEndianExplicit};
        dataset = parseIdentifier(input, Syntaxes[(choice >> 3U) % Syntaxes.size()]);
    } catch (const RequestFailure& failure) {
        require(failure.status() == 0xc000);
        return;
    }
    const auto model = (choice & 1U) != 0 ? InformationModel::PatientRoot : InformationModel::StudyRoot;
    const std::string stored{withoutBlanks(part)};
    const bool isText = QUtf8StringView{stored.data(), static_cast<qsizetype>(stored.size())}.isValidUtf8();
    try {
        DcmDataset copy{*dataset};
        const auto query = readQuery(copy, model, {(choice & 2U) != 0, (choice & 4U) != 0});
        checkStatements(query.query);
        if (isText)
            checkKeys(query.query, stored);
    } catch (const RequestFailure& failure) {
        require(failure.status() == 0xa900);
    }
    try {
        const auto query = readRetrieval(*dataset, model);
        checkStatements(query);
        require(!query.keys.back().match.isUniversal());  // never everything
        require(!query.keys.back().match.alternatives().empty());
    } catch (const RequestFailure& failure) {
        require(failure.status() == 0xa900);
    }
}
