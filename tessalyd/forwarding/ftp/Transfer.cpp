#include "tessalyd/forwarding/ftp/Transfer.h"

#include <curl/curl.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <functional>
#include <stdexcept>

#include "tessalyd/Printable.h"
#include "tessalyd/forwarding/ftp/OpenSockets.h"

namespace tessaly::tessalyd::ftp {

namespace {

/// How long the library's own wait may last. While the data connection is made it waits now and then on
/// nothing that would wake it: that socket is given to it beside its own, and the wait is short while an
/// operation is young, as most are over by then.
constexpr int ShortPoll = 1;
constexpr int LongPoll = 5;
constexpr int ShortPolls = 100;
constexpr long BufferSize = 256L << 10U;

struct FreeEasy {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
struct FreeMulti {
    void operator()(CURLM* handle) const noexcept { curl_multi_cleanup(handle); }
};
struct FreeList {
    void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using List = std::unique_ptr<curl_slist, FreeList>;

void append(List& list, const std::string& text) {
    curl_slist* const longer = curl_slist_append(list.get(), text.c_str());
    if (longer == nullptr)
        throw std::bad_alloc{};
    (void)list.release();
    list.reset(longer);
}

/// Once in the process; it is thread-safe as the language makes it so.
void needLibrary() {
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (result != CURLE_OK)
        throw std::runtime_error{"the FTP library cannot be had"};
}

std::string escaped(const std::string& part) {
    static constexpr std::array Digits{'0', '1', '2', '3', '4', '5', '6', '7',
                                       '8', '9', 'A', 'B', 'C', 'D', 'E', 'F'};
    std::string text;
    for (const char c : part) {
        const auto byte = static_cast<unsigned char>(c);
        text += '%';
        text += Digits.at(byte >> 4U);
        text += Digits.at(byte & 0xfU);
    }
    return text;
}

/// A reply of the server's that says no, of those that leave the connection as it was.
bool isRefusal(const Conversation& conversation) {
    return conversation.code() >= 400 && conversation.code() != 421;
}

Transfer::Outcome outcomeOf(CURLcode code, const Conversation& said, bool isConnected) {
    using Outcome = Transfer::Outcome;
    switch (code) {
        case CURLE_OK:
            return Outcome::Done;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_CONNECT:
            return isConnected ? Outcome::Broken : Outcome::NotConnected;  // else the data connection
        case CURLE_OPERATION_TIMEDOUT:
            if (said.code() == 421)  // the library's way to say so
                return Outcome::Broken;
            return isConnected ? Outcome::TimedOut : Outcome::NotConnected;
        case CURLE_USE_SSL_FAILED:
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_CIPHER:
            return Outcome::NotSecure;
        case CURLE_LOGIN_DENIED:
            return Outcome::LoginRefused;
        case CURLE_REMOTE_ACCESS_DENIED:
            return said.code() == 421 ? Outcome::Broken : Outcome::FolderRefused;
        case CURLE_ABORTED_BY_CALLBACK:
        case CURLE_READ_ERROR:
            return Outcome::SourceFailed;
        case CURLE_UPLOAD_FAILED:
        case CURLE_QUOTE_ERROR:
        case CURLE_PARTIAL_FILE:
        case CURLE_FTP_WEIRD_PASV_REPLY:
        case CURLE_FTP_WEIRD_227_FORMAT:
        case CURLE_FTP_COULDNT_SET_TYPE:
            return isRefusal(said) ? Outcome::Refused : Outcome::Broken;
        case CURLE_WRITE_ERROR:
            return said.sizeDiffers() ? Outcome::Refused : Outcome::Other;
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_FTP_ACCEPT_FAILED:
            return Outcome::Broken;
        default:
            return Outcome::Other;
    }
}

/// Their text is of the library and of the certificate alone.
bool isOwnText(CURLcode code) {
    return code == CURLE_COULDNT_CONNECT || code == CURLE_PEER_FAILED_VERIFICATION ||
           code == CURLE_SSL_CONNECT_ERROR || code == CURLE_SSL_CACERT_BADFILE;
}

}  // namespace

class Transfer::Handles {
  public:
    Handles(const Address& address, const Node& node, const std::string& resolved, std::stop_token stop,
            const Limits& limits);
    ~Handles() { sockets_.endReading(); }  // what is cleaned up says farewell, and waits for the answer

    Result run(const std::vector<std::string>& folder, const std::string& name, Source* source,
               const std::vector<std::string>& commands);

  private:
    template <class Value>
    void set(CURLoption option, Value value) {
        if (const CURLcode result = curl_easy_setopt(easy_.get(), option, value); result != CURLE_OK)
            throw std::runtime_error{curl_easy_strerror(result)};
    }
    void setConnection(const Address& address, const Node& node, const std::string& resolved);
    void setLimits(const Limits& limits);
    void setSecurity();
    void setCallbacks();
    [[nodiscard]] CURLcode perform();
    [[nodiscard]] CURLMcode wait(bool isYoung);

    static std::size_t onRead(char* target, std::size_t size, std::size_t count, void* self);
    static std::size_t onHeader(char* line, std::size_t size, std::size_t count, void* self);
    static int onDebug(CURL* handle, curl_infotype type, char* text, std::size_t size, void* self);
    static curl_socket_t onOpen(void* self, curlsocktype purpose, curl_sockaddr* address);
    static int onClose(void* self, curl_socket_t socket);

    std::stop_token stop_;
    OpenSockets sockets_;
    std::stop_callback<std::function<void()>> shutDown_;
    std::string server_;  // the URL's beginning
    List resolve_;
    std::array<char, CURL_ERROR_SIZE> words_{};
    Conversation conversation_;
    Source* source_ = nullptr;
    std::string sourceFault_;
    std::unique_ptr<CURLM, FreeMulti> multi_;
    std::unique_ptr<CURL, FreeEasy> easy_;  // before the other in its end
};

Transfer::Handles::Handles(const Address& address, const Node& node, const std::string& resolved,
                           std::stop_token stop, const Limits& limits)
    : stop_(std::move(stop)), shutDown_(stop_, [this] { sockets_.shutDown(); }) {
    needLibrary();
    multi_.reset(curl_multi_init());
    easy_.reset(curl_easy_init());
    if (!multi_ || !easy_)
        throw std::bad_alloc{};
    curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, 1L);
    setConnection(address, node, resolved);
    setLimits(limits);
    if (address.tls)
        setSecurity();
    setCallbacks();
}

void Transfer::Handles::setConnection(const Address& address, const Node& node, const std::string& resolved) {
    const bool isV6 = address.host.find(':') != std::string::npos;
    const std::string host = isV6 ? "[" + address.host + "]" : address.host;
    server_ = "ftp://" + host + ":" + std::to_string(address.port) + "/";
    if (!resolved.empty()) {
        append(resolve_, address.host + ":" + std::to_string(address.port) + ":" + resolved);
        set(CURLOPT_RESOLVE, resolve_.get());
    }
    set(CURLOPT_PROTOCOLS_STR, "ftp");
    set(CURLOPT_PROXY, "");  // the environment may name one
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_USERNAME, node.user.c_str());
    set(CURLOPT_PASSWORD, node.password.c_str());
    set(CURLOPT_FTP_FILEMETHOD, static_cast<long>(CURLFTPMETHOD_MULTICWD));
    set(CURLOPT_FTP_CREATE_MISSING_DIRS, static_cast<long>(CURLFTP_CREATE_DIR_RETRY));
    set(CURLOPT_FTP_SKIP_PASV_IP, 1L);  // no server tells us whom else to connect to
    set(CURLOPT_UPLOAD_BUFFERSIZE, BufferSize);
}

void Transfer::Handles::setLimits(const Limits& limits) {
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(limits.connect.count()));
    set(CURLOPT_SERVER_RESPONSE_TIMEOUT, static_cast<long>(limits.answer.count()));
    set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(limits.idle.count()));
}

void Transfer::Handles::setSecurity() {
    set(CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    // With 1.3, uploads fail against several servers: the library reads its tickets too late.
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2) | CURL_SSLVERSION_MAX_TLSv1_2);
    set(CURLOPT_SSL_SESSIONID_CACHE, 1L);  // servers want the data connection to resume the control's session
    if (const char* const authorities = std::getenv("SSL_CERT_FILE"); authorities != nullptr) {
        set(CURLOPT_CAINFO, authorities);
        set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
}

void Transfer::Handles::setCallbacks() {
    set(CURLOPT_ERRORBUFFER, words_.data());
    set(CURLOPT_READFUNCTION, &Handles::onRead);
    set(CURLOPT_READDATA, this);
    set(CURLOPT_HEADERFUNCTION, &Handles::onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_OPENSOCKETFUNCTION, &Handles::onOpen);
    set(CURLOPT_OPENSOCKETDATA, this);
    set(CURLOPT_CLOSESOCKETFUNCTION, &Handles::onClose);
    set(CURLOPT_CLOSESOCKETDATA, this);
    // The commands are told to nobody but this callback.
    set(CURLOPT_DEBUGFUNCTION, &Handles::onDebug);
    set(CURLOPT_DEBUGDATA, this);
    set(CURLOPT_VERBOSE, 1L);
}

Transfer::Result Transfer::Handles::run(const std::vector<std::string>& folder, const std::string& name,
                                        Source* source, const std::vector<std::string>& commands) {
    std::string url = server_;
    for (const std::string& part : folder)
        url += part == "/" ? escaped(part) : escaped(part) + '/';
    List list;
    for (const std::string& command : commands)
        append(list, command);
    source_ = source;
    sourceFault_.clear();
    words_.front() = '\0';
    if (source != nullptr) {
        source->rewind();
        conversation_ = Conversation{source->size()};
        url += escaped(name);
        set(CURLOPT_UPLOAD, 1L);
        set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(source->size()));
    } else {
        conversation_ = Conversation{};
        set(CURLOPT_UPLOAD, 0L);
        set(CURLOPT_NOBODY, 1L);
    }
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_POSTQUOTE, list.get());
    const CURLcode code = perform();
    set(CURLOPT_POSTQUOTE, static_cast<curl_slist*>(nullptr));
    source_ = nullptr;

    long connected = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_NUM_CONNECTS, &connected);
    const bool isConnected = connected > 0 || !conversation_.verb().empty() || conversation_.code() != 0;
    Result result{.outcome = outcomeOf(code, conversation_, isConnected),
                  .conversation = conversation_,
                  .detail = sourceFault_};
    if (isOwnText(code))
        result.detail = printable(words_.data());
    else if (result.outcome == Outcome::Other)
        result.detail = curl_easy_strerror(code);
    return result;
}

CURLcode Transfer::Handles::perform() {
    if (const CURLMcode added = curl_multi_add_handle(multi_.get(), easy_.get()); added != CURLM_OK)
        throw std::runtime_error{curl_multi_strerror(added)};
    CURLMcode state = CURLM_OK;
    int running = 1;
    int polls = 0;
    while (state == CURLM_OK && !stop_.stop_requested()) {
        state = curl_multi_perform(multi_.get(), &running);
        if (running == 0)
            break;
        if (state == CURLM_OK)
            state = wait(++polls <= ShortPolls);
    }
    CURLcode result = CURLE_ABORTED_BY_CALLBACK;
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
        if (message->msg == CURLMSG_DONE)
            result = message->data.result;
    }
    curl_multi_remove_handle(multi_.get(), easy_.get());
    return result;
}

CURLMcode Transfer::Handles::wait(bool isYoung) {
    curl_waitfd data{.fd = sockets_.latest(), .events = CURL_WAIT_POLLOUT, .revents = 0};
    const bool connects = conversation_.awaitsDataConnection() && data.fd >= 0;
    return curl_multi_poll(multi_.get(), &data, isYoung && connects ? 1 : 0, isYoung ? ShortPoll : LongPoll,
                           nullptr);
}

std::size_t Transfer::Handles::onRead(char* target, std::size_t size, std::size_t count, void* self) {
    auto& handles = *static_cast<Handles*>(self);
    try {
        return handles.source_->read({target, size * count});
    } catch (const std::exception& fault) {
        handles.sourceFault_ = fault.what();
        return CURL_READFUNC_ABORT;
    }
}

std::size_t Transfer::Handles::onHeader(char* line, std::size_t size, std::size_t count, void* self) {
    auto& handles = *static_cast<Handles*>(self);
    return handles.conversation_.received({line, size * count}) ? size * count : 0;
}

int Transfer::Handles::onDebug(CURL* /*handle*/, curl_infotype type, char* text, std::size_t size,
                               void* self) {
    if (type == CURLINFO_HEADER_OUT)
        static_cast<Handles*>(self)->conversation_.sent({text, size});
    return 0;
}

curl_socket_t Transfer::Handles::onOpen(void* self, curlsocktype /*purpose*/, curl_sockaddr* address) {
    const int socket =
        static_cast<Handles*>(self)->sockets_.open(address->family, address->socktype, address->protocol);
    return socket < 0 ? CURL_SOCKET_BAD : socket;
}

int Transfer::Handles::onClose(void* self, curl_socket_t socket) {
    static_cast<Handles*>(self)->sockets_.close(socket);
    return 0;
}

Transfer::Transfer(const Address& address, const Node& node, const std::string& resolved,
                   std::stop_token stop, const Limits& limits)
    : handles_(std::make_unique<Handles>(address, node, resolved, std::move(stop), limits)) {}

Transfer::~Transfer() = default;

Transfer::Result Transfer::run(const std::vector<std::string>& folder, const std::string& name,
                               Source* source, const std::vector<std::string>& commands) {
    return handles_->run(folder, name, source, commands);
}

}  // namespace tessaly::tessalyd::ftp
