#include "tessalyd/services/retrieve/GetService.h"

#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <system_error>

#include "dicom/data/StorageClasses.h"
#include "dicom/data/TransferSyntaxes.h"
#include "dicom/net/StoreRequest.h"
#include "tessalyd/search/StoredObject.h"

namespace tessaly::tessalyd {

namespace {

/// Seconds for the answer to an object; a requester that says nothing for as long is gone.
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
            return one.has(Role::Scp) && one.syntax == syntax && one.sopClass == sopClass;
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
    Sending(GetService& service, const Request& request, Requester& requester, std::size_t total)
        : service_(service), request_(request), requester_(requester), operations_(total) {}
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
                cancelled = Retrieval::isCancelled(requester_);
                if (!cancelled)
                    send(instances.next().value());
                tellProgress();
            }
        } catch (const std::system_error& error) {  // the list: what is left of it has no names
            requester_.log(PeerLog::Event::Failure,
                           std::to_string(operations_.remaining()) + " objects not sent: " + error.what());
            while (operations_.remaining() > 0)
                operations_.fail();
        }
        answered_ = true;
        service_.retrieval_.answerFinally(request_, requester_, operations_, cancelled);
    }

  private:
    void tellProgress() {
        if (operations_.remaining() > 0 && pace_.isDue(PendingPace::Clock::now()))
            Retrieval::answerPending(request_, requester_, operations_);
    }

    void send(const StoredInstance& instance) {
        std::string reason;
        try {
            reason = trySend(instance);
        } catch (const AssociationEnded&) {
            throw;
        } catch (const std::exception& fault) {
            reason = fault.what();
        }
        if (!reason.empty()) {
            operations_.fail(instance.sopInstanceUid);
            requester_.log(PeerLog::Event::Failure, instance.sopInstanceUid + " not sent: " + reason);
        }
    }

    /// Empty when it was sent and counted, or cancelled before; else why not.
    std::string trySend(const StoredInstance& instance) {
        StoredObject stored{instance};
        const dicom::TransferSyntax syntax{stored.kind().transferSyntax};
        const AcceptedContext* const context =
            contextFor(requester_.contexts(), stored.kind().sopClass, syntax);
        if (context == nullptr)
            return "the requester has no presentation context in which it would receive it";
        std::unique_ptr<dicom::OutgoingObject> converted;
        if (context->syntax != syntax) {
            const auto isGivenUp = [this] {
                tellProgress();
                return Retrieval::isCancelled(requester_);
            };
            converted = stored.convertedTo(
                context->syntax.uid(), service_.retrieval_.decoders(),
                {.stop = requester_.stop(), .isGivenUp = isGivenUp, .requester = requester_.names().address});
            if (!converted && Retrieval::isCancelled(requester_))
                return {};
            if (!converted)
                return "its conversion was stopped";
        }
        const dicom::SendResult result = sendOver(*context, converted ? *converted : stored);
        switch (result.outcome) {
            case dicom::SendResult::Outcome::Success:
                operations_.complete();
                return {};
            case dicom::SendResult::Outcome::Warning:
                operations_.warn();
                return {};
            default:
                return result.detail;
        }
    }

    dicom::SendResult sendOver(const AcceptedContext& context, dicom::OutgoingObject& object) {
        T_ASC_Association& association = *requester_.association();
        const DIC_US messageId = association.nextMsgID++;
        dicom::StoreRequest store{association, context.id, messageId, service_.buffer_};
        T_DIMSE_Message message = store.message(object, nullptr);
        requester_.dump(message);
        try {
            Requester::require(store.send(object));
        } catch (const AssociationEnded&) {
            throw;
        } catch (const std::exception& fault) {
            if (!store.hasBegun())
                throw;
            // Half an object is out, and there is no other way to take it back.
            requester_.log(PeerLog::Event::Failure, object.sopInstanceUid() + " broken off: " + fault.what());
            operations_.fail(object.sopInstanceUid());
            throw AssociationEnded{DIMSE_SENDFAILED};
        }
        const Request answer = awaitAnswer();
        const T_DIMSE_C_StoreRSP& response = answer.message.msg.CStoreRSP;
        if (answer.message.CommandField != DIMSE_C_STORE_RSP ||
            response.MessageIDBeingRespondedTo != messageId)
            throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
        return dicom::resultOf(response.DimseStatus, {});
    }

    Request awaitAnswer() {
        for (int waited = 0; !ASC_dataWaiting(requester_.association(), 1); ++waited) {
            if (waited == AnswerPatience || requester_.stop().stop_requested())
                throw AssociationEnded{DIMSE_NODATAAVAILABLE};
            tellProgress();
        }
        return requester_.receive();
    }

    GetService& service_;
    const Request& request_;
    Requester& requester_;
    SubOperations operations_;
    PendingPace pace_{PendingPace::Clock::now()};
    bool answered_ = false;
};

std::span<const SupportedContext> GetService::supportedContexts() const noexcept {
    static constexpr std::array Offers{
        SupportedContext{
            .covers = Retrieval::isGet,
            .requester = Role::Scu,
            .preference = [](dicom::TransferSyntax syntax) { return dicom::isUncompressed(syntax) ? 1 : 0; }},
        SupportedContext{.covers = dicom::isStored, .requester = Role::Scp, .preference = preferenceToSend}};
    return Offers;
}

void GetService::answer(const Request& request, Requester& requester) {
    retrieval_.rules().require(requester);
    auto instances = retrieval_.find(request, requester);
    if (!instances)
        return retrieval_.answerFinally(request, requester, SubOperations{0}, true);
    Sending{*this, request, requester, instances->size()}.run(*instances);
}

}  // namespace tessaly::tessalyd
