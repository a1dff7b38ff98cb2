#include "tessalyd/services/retrieve/GetService.h"

#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/dimse.h>

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "dicom/data/StorageClasses.h"
#include "dicom/data/TransferSyntaxes.h"
#include "dicom/net/StoreRequest.h"
#include "tessalyd/search/StoredObject.h"

namespace tessaly::tessalyd {

namespace {

/// Seconds for the answer to an object; a requestor that says nothing for as long is gone.
constexpr int AnswerPatience = 60;

/// Everything stored can be brought into these; explicit little endian loses least.
constexpr std::array Universal{EXS_LittleEndianExplicit, EXS_LittleEndianImplicit, EXS_BigEndianExplicit};

/// Of several syntaxes in one context one has to do for all objects of the class, however they are stored.
int preferenceToSend(dicom::TransferSyntax syntax) {
    const auto* const found = std::find(Universal.begin(), Universal.end(), syntax);
    if (found != Universal.end())
        return 1 + static_cast<int>(Universal.end() - found);
    return dicom::isArchived(syntax) ? 1 : 0;
}

}  // namespace

const AcceptedContext* contextFor(std::span<const AcceptedContext> contexts, const std::string& sopClass,
                                  dicom::TransferSyntax stored) {
    const auto find = [&](dicom::TransferSyntax syntax) -> const AcceptedContext* {
        const auto found = std::find_if(contexts.begin(), contexts.end(), [&](const AcceptedContext& one) {
            return one.has(Role::Scp) && one.syntax() == syntax && one.sopClass == sopClass;
        });
        return found == contexts.end() ? nullptr : &*found;
    };
    const AcceptedContext* context = find(stored);
    for (const auto* syntax = Universal.begin(); context == nullptr && syntax != Universal.end(); ++syntax)
        context = find(*syntax);
    return context;
}

/// One request being answered. Counts also when it is broken off.
class GetService::Sending {
  public:
    Sending(GetService& service, const Request& request, Association& association, std::size_t total)
        : service_(service), request_(request), association_(association), operations_(total) {}
    ~Sending() {
        if (!answered_)
            service_.retrieval_.count(operations_);
    }
    Sending(const Sending&) = delete;
    Sending& operator=(const Sending&) = delete;

    void run(InstanceList& instances) {
        bool cancelled = false;
        try {
            while (!cancelled && operations_.remaining() > 0) {
                cancelled = association_.isCancelled();
                if (!cancelled)
                    send(instances.next().value());
                tellProgress();
            }
        } catch (const std::system_error& error) {  // the list: what is left of it has no names
            association_.log(PeerLog::Event::Failure,
                             std::to_string(operations_.remaining()) + " objects not sent: " + error.what());
            while (operations_.remaining() > 0)
                operations_.fail();
        }
        answered_ = true;
        service_.retrieval_.answerFinally(request_, association_, operations_, cancelled);
    }

  private:
    void tellProgress() {
        if (operations_.remaining() > 0 && pace_.isDue(PendingPace::Clock::now()))
            Retrieval::answerPending(request_, association_, operations_);
    }

    void send(const StoredInstance& instance) {
        try {
            trySend(instance);
        } catch (const AssociationEnded&) {
            throw;
        } catch (const std::exception& fault) {
            operations_.fail(instance.sopInstanceUid);
            association_.log(PeerLog::Event::Failure, instance.sopInstanceUid + " not sent: " + fault.what());
        }
    }

    /// Sends and counts the object; neither if it was cancelled before. Throws std::exception if it fails.
    void trySend(const StoredInstance& instance) {
        StoredObject stored{instance};
        const dicom::TransferSyntax syntax{stored.kind().transferSyntax};
        const AcceptedContext* const context =
            contextFor(association_.contexts(), stored.kind().sopClass, syntax);
        if (context == nullptr)
            throw std::runtime_error{
                "the requestor has no presentation context in which it would receive it"};
        std::unique_ptr<dicom::OutgoingObject> converted;
        if (context->syntax() != syntax) {
            converted = convert(stored, *context);
            if (!converted && association_.isCancelled())
                return;
            if (!converted)
                throw std::runtime_error{"its conversion was stopped"};
        }
        const dicom::SendResult result = sendOver(*context, converted ? *converted : stored);
        if (result.outcome == dicom::SendResult::Outcome::Success)
            operations_.complete();
        else if (result.outcome == dicom::SendResult::Outcome::Warning)
            operations_.warn();
        else
            throw std::runtime_error{result.detail};
    }

    [[nodiscard]] std::unique_ptr<dicom::OutgoingObject> convert(StoredObject& stored,
                                                                 const AcceptedContext& context) {
        const auto isGivenUp = [this] {
            tellProgress();
            return association_.isCancelled();
        };
        return stored.convertedTo(
            context.transferSyntax, service_.retrieval_.shared().decoders,
            {.stop = association_.stop(), .isGivenUp = isGivenUp, .requestor = association_.names().address});
    }

    dicom::SendResult sendOver(const AcceptedContext& context, dicom::OutgoingObject& object) {
        const std::uint16_t messageId = association_.messages().nextMessageId();
        dicom::StoreRequest store{association_.messages(), context.id, messageId, service_.buffer_};
        try {
            store.send(object);
        } catch (const AssociationEnded&) {
            throw;
        } catch (const std::exception& fault) {
            if (!store.hasBegun())
                throw;
            // Half an object is out, and there is no other way to take it back.
            association_.log(PeerLog::Event::Failure,
                             object.sopInstanceUid() + " broken off: " + fault.what());
            operations_.fail(object.sopInstanceUid());
            throw AssociationEnded{DIMSE_SENDFAILED};
        }
        return dicom::resultOf(awaitResponse(messageId));
    }

    dicom::Command awaitResponse(std::uint16_t messageId) {
        for (int waited = 0; !association_.waitForMessage(std::chrono::seconds{1}); ++waited) {
            if (waited == AnswerPatience)
                throw AssociationEnded{DIMSE_NODATAAVAILABLE};
            tellProgress();
        }
        return association_.receiveResponse(messageId);
    }

    GetService& service_;
    const Request& request_;
    Association& association_;
    SubOperations operations_;
    PendingPace pace_{PendingPace::Clock::now()};
    bool answered_ = false;
};

std::span<const SupportedContext> GetService::contexts() const noexcept {
    static constexpr std::array Supported{
        SupportedContext{
            .covers = Retrieval::isGet,
            .requestor = Role::Scu,
            .preference = [](dicom::TransferSyntax syntax) { return dicom::isUncompressed(syntax) ? 1 : 0; },
            .right = Right::Query},
        SupportedContext{.covers = dicom::isStored, .requestor = Role::Scp, .preference = preferenceToSend}};
    return Supported;
}

std::span<const CommandField> GetService::commands() const noexcept {
    static constexpr std::array Commands{CommandField::CGet};
    return Commands;
}

void GetService::answer(const Request& request, Association& association) {
    auto instances = retrieval_.find(request, association);
    if (!instances)
        return retrieval_.answerFinally(request, association, SubOperations{0}, true);
    Sending{*this, request, association, instances->size()}.run(*instances);
}

}  // namespace tessaly::tessalyd
