#include "relay/nats.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <mutex>

namespace nats {

namespace {

using client::failure_t;
using client::obstacle_t;

constexpr int64_t nanoseconds = 1'000'000'000;  // a second

obstacle_t obstacle_of(natsStatus status) {
    switch (status) {
        case NATS_NO_SERVER:
        case NATS_NOT_YET_CONNECTED:
            return obstacle_t::no_service;
        case NATS_CONNECTION_AUTH_FAILED:
        case NATS_NOT_PERMITTED:
        case NATS_SSL_ERROR:
        case NATS_SECURE_CONNECTION_REQUIRED:
        case NATS_SECURE_CONNECTION_WANTED:
            return obstacle_t::access;
        case NATS_CONNECTION_CLOSED:
        case NATS_CONNECTION_DISCONNECTED:
        case NATS_STALE_CONNECTION:
        case NATS_IO_ERROR:
        case NATS_TIMEOUT:
        case NATS_NO_RESPONDERS:
        case NATS_MISSED_HEARTBEAT:
        case NATS_INSUFFICIENT_BUFFER:  // of what may wait for a connection: nothing
        case NATS_MISMATCH:
            return obstacle_t::no_answer;
        default:
            return obstacle_t::request;
    }
}

/// Without the place in the library's source that it begins with: "(js.c:535): ".
std::string_view without_place(std::string_view text) {
    const size_t end = text.find("): ");
    return text.starts_with('(') && end != std::string_view::npos ? text.substr(end + 3) : text;
}

/// The library's words for what this thread's last call came to; `code` is JetStream's, 0 for none.
failure_t failure(const std::string& what, natsStatus status, int code = 0) {
    natsStatus last = NATS_OK;
    const char* const told = nats_GetLastError(&last);
    const bool is_of_this = last == status && told != nullptr && *told != '\0';
    return {static_cast<uint32_t>(code),
            fmt::format("{}: {}", what, without_place(is_of_this ? told : natsStatus_GetText(status))),
            obstacle_of(status)};
}

std::string variable(const char* name, const std::string& given) {
    const char* const value = given.empty() ? std::getenv(name) : nullptr;  // NOLINT(concurrency-mt-unsafe)
    return value != nullptr ? value : given;
}

int size_of(std::string_view text) {
    return static_cast<int>(text.size());
}

int64_t count_of(milliseconds time) {
    return time.count();
}

}  // namespace

namespace {

/// A message is freed by the library's own thread. Its threads go on for a moment when a connection is closed, and must
/// be over before the process takes their memory away.
class library_t {
  public:
    library_t() { static_cast<void>(nats_Open(-1)); }
    ~library_t() {
        constexpr int64_t patience = 2000;  // milliseconds
        static_cast<void>(nats_CloseAndWait(patience));
    }
    library_t(const library_t&) = delete;
    library_t& operator=(const library_t&) = delete;
};

void use_library() {
    static const library_t library;
}

}  // namespace

server_t with_environment(server_t server) {
    server.credentials = variable("NATS_CREDS", server.credentials);
    server.ca = variable("NATS_CA", server.ca);
    server.certificate = variable("NATS_CERT", server.certificate);
    server.key = variable("NATS_KEY", server.key);
    return server;
}

std::string shown_url(std::string_view url) {
    std::string shown;
    while (!url.empty()) {
        const std::string_view one = url.substr(0, url.find(','));
        url.remove_prefix(std::min(one.size() + 1, url.size()));
        const size_t scheme = one.find("://");
        const size_t begin = scheme == std::string_view::npos ? 0 : scheme + 3;
        const size_t at = one.rfind('@');
        shown += shown.empty() ? "" : ",";
        shown += at == std::string_view::npos ? std::string(one)
                                              : std::string(one.substr(0, begin)) + std::string(one.substr(at + 1));
    }
    return shown;
}

message_t::message_t(const std::string& subject, std::string_view data, const std::string& reply) {
    use_library();
    natsMsg* made = nullptr;
    static_cast<void>(
        natsMsg_Create(&made, subject.c_str(), reply.empty() ? nullptr : reply.c_str(), data.data(), size_of(data)));
    message_.reset(made);
}

std::string_view message_t::data() const {
    return {natsMsg_GetData(message_.get()), static_cast<size_t>(natsMsg_GetDataLength(message_.get()))};
}

std::string message_t::header(const char* name) const {
    const char* value = nullptr;
    return natsMsgHeader_Get(message_.get(), name, &value) == NATS_OK && value != nullptr ? value : "";
}

void message_t::set_header(const char* name, std::string value) {
    std::ranges::replace_if(
        value, [](char octet) { return static_cast<unsigned char>(octet) < ' ' || octet == '\x7F'; }, ' ');
    // A header without a value is read by the library as if the next one were its value.
    if (value.find_first_not_of(' ') != std::string::npos) {
        static_cast<void>(natsMsgHeader_Set(message_.get(), name, value.c_str()));
    }
}

namespace {

own_t<jsMsgMetaData, jsMsgMetaData_Destroy> metadata_of(natsMsg* message) {
    jsMsgMetaData* found = nullptr;
    static_cast<void>(natsMsg_GetMetaData(&found, message));
    return own_t<jsMsgMetaData, jsMsgMetaData_Destroy>(found);
}

}  // namespace

uint64_t message_t::sequence() const {
    const uint64_t sequence = sequence_ != 0 ? sequence_ : natsMsg_GetSequence(message_.get());
    const auto metadata = sequence == 0 ? metadata_of(message_.get()) : nullptr;
    return metadata ? metadata->Sequence.Stream : sequence;
}

int64_t message_t::time() const {
    const int64_t time = natsMsg_GetTime(message_.get());
    const auto metadata = time == 0 ? metadata_of(message_.get()) : nullptr;
    return (metadata ? metadata->Timestamp : time) / nanoseconds;
}

uint64_t message_t::deliveries() const {
    const auto metadata = metadata_of(message_.get());
    return metadata ? metadata->NumDelivered : 0;
}

void message_t::give_back(milliseconds delay) const {
    static_cast<void>(delay.count() == 0 ? natsMsg_Nak(message_.get(), nullptr)
                                         : natsMsg_NakWithDelay(message_.get(), count_of(delay), nullptr));
}

answer_t<std::optional<message_t>> subscription_t::next(milliseconds wait) {
    natsMsg* found = nullptr;
    const natsStatus status =
        natsSubscription_NextMsg(&found, subscription_.get(), std::max<int64_t>(1, count_of(wait)));
    if (status == NATS_OK) {
        return std::optional<message_t>(message_t(found));
    }
    if (status == NATS_TIMEOUT) {
        return std::optional<message_t>();
    }
    return failure("the server's messages cannot be followed", status);
}

answer_t<std::vector<message_t>> pull_t::take(int most, milliseconds wait) {
    constexpr int64_t soon = 50'000'000;  // nanoseconds: a server of 2.9 says only then that there is none
    jsFetchRequest request;
    static_cast<void>(jsFetchRequest_Init(&request));
    request.Batch = most;
    request.NoWait = wait.count() == 0;
    request.Expires = request.NoWait ? soon : std::chrono::nanoseconds(wait).count();
    natsMsgList list{};
    const natsStatus status = natsSubscription_FetchRequest(&list, subscription_.get(), &request);
    std::vector<message_t> messages;
    messages.reserve(static_cast<size_t>(list.Count));
    for (int i = 0; i < list.Count; ++i) {
        messages.emplace_back(std::exchange(list.Msgs[i], nullptr), subscription_);
    }
    natsMsgList_Destroy(&list);
    if (status != NATS_OK && status != NATS_TIMEOUT && status != NATS_NOT_FOUND && messages.empty()) {
        return failure("the server gives no cards", status);
    }
    return messages;
}

answer_t<std::optional<entry_t>> watch_t::next(milliseconds wait, bool* all_told) {
    kvEntry* found = nullptr;
    const natsStatus status = kvWatcher_Next(&found, watcher_.get(), std::max<int64_t>(1, count_of(wait)));
    *all_told = *all_told || (status == NATS_OK && found == nullptr);
    if (status == NATS_TIMEOUT || (status == NATS_OK && found == nullptr)) {
        return std::optional<entry_t>();
    }
    if (status != NATS_OK) {
        return failure("the server does not tell of the bucket", status);
    }
    const own_t<kvEntry, kvEntry_Destroy> entry(found);
    entry_t told{kvEntry_Key(found), std::nullopt};
    if (kvEntry_Operation(found) == kvOp_Put) {
        told.value.emplace(static_cast<const char*>(kvEntry_Value(found)), kvEntry_ValueLen(found));
    }
    return std::optional(told);
}

namespace {

using options_t = own_t<natsOptions, natsOptions_Destroy>;

/// As the server's permissions name it: a user's answers are that user's alone.
std::string inbox_prefix(std::string_view url) {
    const size_t scheme = url.find("://");
    const std::string_view rest = scheme == std::string_view::npos ? url : url.substr(scheme + 3);
    const std::string_view user = rest.substr(0, std::min(rest.find(':'), rest.find('@')));
    return rest.find('@') == std::string_view::npos || user.empty() ? "" : fmt::format("_INBOX_{}", user);
}

/// All of them, in their order; the first that fails, and what it was about.
class settings_t {
  public:
    void set(natsStatus status, const std::string& about) {
        if (status_ == NATS_OK && status != NATS_OK) {
            status_ = status;
            failure_ = failure(about, status);
        }
    }
    bool good() const { return status_ == NATS_OK; }
    const failure_t& why() const { return failure_; }

  private:
    natsStatus status_ = NATS_OK;
    failure_t failure_;
};

std::vector<const char*> pointers_to(const std::vector<std::string>& texts) {
    std::vector<const char*> pointers;
    pointers.reserve(texts.size());
    for (const std::string& text : texts) {
        pointers.push_back(text.c_str());
    }
    return pointers;
}

std::vector<std::string> urls_of(std::string_view list) {
    std::vector<std::string> urls;
    while (!list.empty()) {
        const std::string_view one = list.substr(0, list.find(','));
        list.remove_prefix(std::min(one.size() + 1, list.size()));
        // Those behind the first may leave out what it says of the scheme and the user.
        const std::string& first = urls.empty() ? std::string() : urls.front();
        const size_t begin = first.find("://");
        const size_t at = first.rfind('@');
        const std::string prefix = begin == std::string::npos ? "nats://"
                                   : at == std::string::npos || one.find('@') != std::string_view::npos
                                       ? first.substr(0, begin + 3)
                                       : first.substr(0, at + 1);
        urls.push_back(one.find("://") != std::string_view::npos ? std::string(one) : prefix + std::string(one));
    }
    return urls;
}

void set_security(natsOptions* options, const server_t& server, settings_t& settings) {
    const bool is_asked_for = server.url.starts_with("tls://") || !server.ca.empty() || !server.certificate.empty();
    settings.set(is_asked_for ? natsOptions_SetSecure(options, true) : NATS_OK, "TLS");
    if (!server.ca.empty()) {
        settings.set(natsOptions_LoadCATrustedCertificates(options, server.ca.c_str()),
                     "the certificates " + server.ca);
    }
    if (!server.certificate.empty()) {
        settings.set(natsOptions_LoadCertificatesChain(options, server.certificate.c_str(), server.key.c_str()),
                     fmt::format("the certificate {} with the key {}", server.certificate, server.key));
    }
    if (!server.credentials.empty()) {
        settings.set(natsOptions_SetUserCredentialsFromFiles(options, server.credentials.c_str(), nullptr),
                     "the credentials " + server.credentials);
    }
}

/// What is told of a connection behind its back is what natsConnection_GetLastError says.
void ignore(natsConnection* /*connection*/, natsSubscription* /*subscription*/, natsStatus /*status*/,
            void* /*closure*/) {}

/// Without it the library would not return before it has connected.
void ignore_first(natsConnection* /*connection*/, void* /*closure*/) {}

options_t make_options(const server_t& server, const std::string& name, bool wait, settings_t& settings) {
    constexpr int64_t connecting = 2000;  // milliseconds
    constexpr int64_t between_tries = 500;
    natsOptions* made = nullptr;
    settings.set(natsOptions_Create(&made), "no memory");
    options_t options(made);
    const std::vector<std::string> urls = urls_of(server.url);
    std::vector<const char*> pointers = pointers_to(urls);
    const std::string prefix = inbox_prefix(server.url);
    settings.set(natsOptions_SetServers(made, pointers.data(), static_cast<int>(pointers.size())),
                 "the server's address " + shown_url(server.url));
    settings.set(natsOptions_SetName(made, name.c_str()), "the name");
    settings.set(natsOptions_SetTimeout(made, connecting), "the time for a connection");
    settings.set(natsOptions_SetMaxReconnect(made, -1), "the reconnections");
    settings.set(natsOptions_SetReconnectWait(made, between_tries), "the reconnections");
    settings.set(natsOptions_SetReconnectBufSize(made, 0), "the reconnections");  // what cannot go now fails now
    settings.set(natsOptions_SetFailRequestsOnDisconnect(made, true), "the requests");
    settings.set(natsOptions_SetPingInterval(made, 10'000), "the pings");
    settings.set(natsOptions_SetErrorHandler(made, ignore, nullptr), "the errors");
    settings.set(natsOptions_SetRetryOnFailedConnect(made, wait, ignore_first, nullptr), "the first connection");
    if (!prefix.empty()) {
        settings.set(natsOptions_SetCustomInboxPrefix(made, prefix.c_str()), "the user's name");
    }
    set_security(made, server, settings);
    return options;
}

}  // namespace

answer_t<std::unique_ptr<connection_t>> connection_t::open(const server_t& server, const std::string& name, bool wait) {
    use_library();
    settings_t settings;
    const options_t options = make_options(server, name, wait, settings);
    if (!settings.good()) {
        return settings.why();
    }
    std::unique_ptr<connection_t> connection(new connection_t);
    connection->inbox_prefix_ = inbox_prefix(server.url);
    natsConnection* made = nullptr;
    natsStatus status = natsConnection_Connect(&made, options.get());
    connection->connection_.reset(made);
    if (status != NATS_OK && !(wait && status == NATS_NOT_YET_CONNECTED)) {
        return failure("no connection to " + shown_url(server.url), status);
    }
    jsOptions stream_options;
    static_cast<void>(jsOptions_Init(&stream_options));
    stream_options.Wait = count_of(longest_call);
    jsCtx* stream = nullptr;
    status = natsConnection_JetStream(&stream, made, &stream_options);
    connection->stream_.reset(stream);
    if (status != NATS_OK) {
        return failure("JetStream", status);
    }
    return connection;
}

connection_t::~connection_t() {
    stream_.reset();
    if (connection_) {
        natsConnection_Close(connection_.get());
    }
}

std::string connection_t::url() const {
    std::array<char, 1024> url{};
    return natsConnection_GetConnectedUrl(connection_.get(), url.data(), url.size()) == NATS_OK ? shown_url(url.data())
                                                                                                : std::string();
}

std::string connection_t::last_refusal() const {
    const char* text = nullptr;
    const natsStatus status = natsConnection_GetLastError(connection_.get(), &text);
    return status == NATS_NOT_PERMITTED && text != nullptr ? text : "";
}

answer_t<done_t> connection_t::publish(const message_t& message) {
    const natsStatus status = natsConnection_PublishMsg(connection_.get(), message.get());
    return status == NATS_OK ? answer_t<done_t>(done_t{}) : failure("cannot publish " + message.subject(), status);
}

answer_t<message_t> connection_t::request(const std::string& subject, std::string_view data, milliseconds wait) {
    natsMsg* reply = nullptr;
    const natsStatus status = natsConnection_Request(&reply, connection_.get(), subject.c_str(), data.data(),
                                                     size_of(data), std::max<int64_t>(1, count_of(wait)));
    if (status != NATS_OK) {
        return failure("no answer to " + subject, status);
    }
    return message_t(reply);
}

answer_t<subscription_t> connection_t::subscribe(const std::string& subject) {
    natsSubscription* made = nullptr;
    const natsStatus status = natsConnection_SubscribeSync(&made, connection_.get(), subject.c_str());
    if (status != NATS_OK) {
        return failure("cannot listen to " + subject, status);
    }
    return subscription_t(made);
}

answer_t<std::string> connection_t::new_inbox() const {
    constexpr std::string_view usual_prefix = "_INBOX";
    natsInbox* made = nullptr;
    const natsStatus status = natsInbox_Create(&made);
    if (status != NATS_OK) {
        return failure("no subject for answers", status);
    }
    std::string inbox = made;
    natsInbox_Destroy(made);
    return inbox_prefix_.empty() ? inbox : inbox.replace(0, usual_prefix.size(), inbox_prefix_);
}

answer_t<done_t> connection_t::flush() {
    const natsStatus status = natsConnection_FlushTimeout(connection_.get(), count_of(longest_call));
    return status == NATS_OK ? answer_t<done_t>(done_t{}) : failure("the server does not answer", status);
}

answer_t<stored_t> connection_t::store(const message_t& message, const std::string& token) {
    jsPubOptions options;
    static_cast<void>(jsPubOptions_Init(&options));
    options.MaxWait = count_of(longest_call);
    options.MsgId = token.empty() ? nullptr : token.c_str();
    jsPubAck* found = nullptr;
    jsErrCode code{};
    const natsStatus status = js_PublishMsg(&found, stream_.get(), message.get(), &options, &code);
    if (status != NATS_OK) {
        return failure("the server does not store " + message.subject(), status, code);
    }
    const own_t<jsPubAck, jsPubAck_Destroy> stored(found);
    return stored_t{found->Sequence, found->Duplicate};
}

namespace {

answer_t<std::optional<message_t>> get(jsCtx* context, const std::string& stream, jsDirectGetMsgOptions& options) {
    natsMsg* found = nullptr;
    const natsStatus status = js_DirectGetMsg(&found, context, stream.c_str(), nullptr, &options);
    if (status == NATS_OK) {
        return std::optional<message_t>(message_t(found));
    }
    if (status == NATS_NOT_FOUND) {
        return std::optional<message_t>();
    }
    return failure("the server does not show its stream " + stream, status);
}

}  // namespace

// A header without a value, which anybody may have written, has the library miss the first of those that the server
// adds behind it, and with it the message, and in a list all after it.
answer_t<std::optional<message_t>> connection_t::get_without_headers(const std::string& stream,
                                                                     const std::string& which,
                                                                     const failure_t& failure) {
    const auto answer = request("$JS.API.DIRECT.GET." + stream, which, longest_call);
    const std::string subject = answer ? answer->header("Nats-Subject") : "";
    const uint64_t sequence = answer ? std::strtoull(answer->header("Nats-Sequence").c_str(), nullptr, 10) : 0;
    return subject.empty() || sequence == 0 ? answer_t<std::optional<message_t>>(failure)
                                            : std::optional(message_t(subject, answer->data(), sequence));
}

answer_t<std::optional<message_t>> connection_t::next_in(const std::string& stream, const std::string& subject,
                                                         uint64_t sequence) {
    jsDirectGetMsgOptions options;
    static_cast<void>(jsDirectGetMsgOptions_Init(&options));
    options.Sequence = std::max<uint64_t>(1, sequence);
    options.NextBySubject = subject.c_str();
    auto found = get(stream_.get(), stream, options);
    if (found || found.failure().obstacle != obstacle_t::request) {
        return found;
    }
    return get_without_headers(stream, fmt::format(R"({{"seq":{},"next_by_subj":"{}"}})", options.Sequence, subject),
                               found.failure());
}

answer_t<std::optional<message_t>> connection_t::last_in(const std::string& stream, const std::string& subject) {
    jsDirectGetMsgOptions options;
    static_cast<void>(jsDirectGetMsgOptions_Init(&options));
    options.LastBySubject = subject.c_str();
    auto found = get(stream_.get(), stream, options);
    if (found || found.failure().obstacle != obstacle_t::request) {
        return found;
    }
    return get_without_headers(stream, fmt::format(R"({{"last_by_subj":"{}"}})", subject), found.failure());
}

answer_t<subscription_t> connection_t::follow(const std::string& stream, const std::string& subject,
                                              uint64_t sequence) {
    jsSubOptions options;
    static_cast<void>(jsSubOptions_Init(&options));
    options.Stream = stream.c_str();
    options.Ordered = true;
    options.Config.DeliverPolicy = js_DeliverByStartSequence;
    options.Config.OptStartSeq = std::max<uint64_t>(1, sequence);
    natsSubscription* made = nullptr;
    jsErrCode code{};
    const natsStatus status = js_SubscribeSync(&made, stream_.get(), subject.c_str(), nullptr, &options, &code);
    if (status != NATS_OK) {
        return failure("the stream " + stream + " cannot be followed", status, code);
    }
    return subscription_t(made);
}

answer_t<bool> connection_t::remove(const std::string& stream, uint64_t sequence) {
    jsErrCode code{};
    const natsStatus status = js_DeleteMsg(stream_.get(), stream.c_str(), sequence, nullptr, &code);
    if (status == NATS_OK) {
        return true;
    }
    if (status == NATS_NOT_FOUND || code == JSNoMessageFoundErr || code == JSSequenceNotFoundErr ||
        code == JSStreamMsgDeleteFailed) {
        return false;
    }
    return failure("the server does not let it go", status, code);
}

answer_t<std::optional<stream_t>> connection_t::stream(const std::string& name) {
    jsStreamInfo* found = nullptr;
    jsErrCode code{};
    const natsStatus status = js_GetStreamInfo(&found, stream_.get(), name.c_str(), nullptr, &code);
    const own_t<jsStreamInfo, jsStreamInfo_Destroy> info(found);
    if (status == NATS_NOT_FOUND || code == JSStreamNotFoundErr) {
        return std::optional<stream_t>();
    }
    if (status != NATS_OK) {
        return failure("the server does not tell of its stream " + name, status, code);
    }
    return std::optional(stream_t{info->State.Msgs, info->State.FirstSeq, info->State.LastSeq, info->Created});
}

answer_t<std::map<std::string, uint64_t>> connection_t::subjects(const std::string& stream, const std::string& filter) {
    jsOptions options;
    static_cast<void>(jsOptions_Init(&options));
    options.Stream.Info.SubjectsFilter = filter.c_str();
    jsStreamInfo* found = nullptr;
    jsErrCode code{};
    const natsStatus status = js_GetStreamInfo(&found, stream_.get(), stream.c_str(), &options, &code);
    const own_t<jsStreamInfo, jsStreamInfo_Destroy> info(found);
    if (status != NATS_OK) {
        return failure("the server does not tell of its stream " + stream, status, code);
    }
    std::map<std::string, uint64_t> subjects;
    const jsStreamStateSubjects* const list = info->State.Subjects;
    for (int i = 0; list != nullptr && i < list->Count; ++i) {
        subjects[list->List[i].Subject] = list->List[i].Msgs;
    }
    return subjects;
}

answer_t<done_t> connection_t::purge(const std::string& stream, const std::string& subject, uint64_t last) {
    jsOptions options;
    static_cast<void>(jsOptions_Init(&options));
    options.Stream.Purge.Subject = subject.c_str();
    options.Stream.Purge.Sequence = last + 1;  // none would be all
    jsErrCode code{};
    const natsStatus status = js_PurgeStream(stream_.get(), stream.c_str(), &options, &code);
    return status == NATS_OK ? answer_t<done_t>(done_t{})
                             : failure(fmt::format("the stream {} cannot be purged", stream), status, code);
}

answer_t<done_t> connection_t::make_stream(jsStreamConfig config) {
    jsStreamInfo* made = nullptr;
    jsErrCode code{};
    natsStatus status = js_AddStream(&made, stream_.get(), &config, nullptr, &code);
    if (code == JSStreamNameExistErr) {
        status = js_UpdateStream(&made, stream_.get(), &config, nullptr, &code);
    }
    jsStreamInfo_Destroy(made);
    return status == NATS_OK ? answer_t<done_t>(done_t{})
                             : failure(fmt::format("the stream {} cannot be made", config.Name), status, code);
}

namespace {

consumer_t told(const jsConsumerInfo& info) {
    constexpr int64_t nanoseconds_in_one = 1'000'000;
    return {.subject = info.Config->FilterSubject != nullptr ? info.Config->FilterSubject : "",
            .waiting = info.NumPending,
            .taken = static_cast<uint64_t>(info.NumAckPending),
            .acknowledged = info.AckFloor.Stream,
            .ack_wait = milliseconds(info.Config->AckWait / nanoseconds_in_one)};
}

}  // namespace

answer_t<std::optional<consumer_t>> connection_t::consumer(const std::string& stream, const std::string& name) {
    jsConsumerInfo* found = nullptr;
    jsErrCode code{};
    const natsStatus status = js_GetConsumerInfo(&found, stream_.get(), stream.c_str(), name.c_str(), nullptr, &code);
    const own_t<jsConsumerInfo, jsConsumerInfo_Destroy> info(found);
    if (status == NATS_NOT_FOUND || code == JSConsumerNotFoundErr || code == JSStreamNotFoundErr) {
        return std::optional<consumer_t>();
    }
    if (status != NATS_OK) {
        return failure(fmt::format("the server does not tell of its consumer {} of {}", name, stream), status, code);
    }
    return std::optional(told(*info));
}

answer_t<std::vector<consumer_t>> connection_t::consumers(const std::string& stream) {
    jsConsumerInfoList* found = nullptr;
    jsErrCode code{};
    const natsStatus status = js_Consumers(&found, stream_.get(), stream.c_str(), nullptr, &code);
    const own_t<jsConsumerInfoList, jsConsumerInfoList_Destroy> list(found);
    if (status != NATS_OK && status != NATS_NOT_FOUND) {
        return failure("the server does not tell of the consumers of " + stream, status, code);
    }
    std::vector<consumer_t> consumers;
    for (int i = 0; list && i < list->Count; ++i) {
        consumers.push_back(told(*list->List[i]));
    }
    return consumers;
}

answer_t<done_t> connection_t::make_consumer(const std::string& stream, jsConsumerConfig config) {
    jsConsumerInfo* made = nullptr;
    jsErrCode code{};
    const natsStatus status = js_AddConsumer(&made, stream_.get(), stream.c_str(), &config, nullptr, &code);
    jsConsumerInfo_Destroy(made);
    return status == NATS_OK
               ? answer_t<done_t>(done_t{})
               : failure(fmt::format("the consumer {} of {} cannot be made", config.Durable, stream), status, code);
}

answer_t<pull_t> connection_t::pull(const std::string& stream, const std::string& consumer) {
    jsConsumerInfo* found = nullptr;
    jsErrCode code{};
    natsStatus status = js_GetConsumerInfo(&found, stream_.get(), stream.c_str(), consumer.c_str(), nullptr, &code);
    const own_t<jsConsumerInfo, jsConsumerInfo_Destroy> info(found);
    natsSubscription* made = nullptr;
    if (status == NATS_OK) {
        jsSubOptions options;
        static_cast<void>(jsSubOptions_Init(&options));
        options.Stream = stream.c_str();
        options.Consumer = consumer.c_str();
        options.ManualAck = true;
        status = js_PullSubscribe(&made, stream_.get(), info->Config->FilterSubject, consumer.c_str(), nullptr,
                                  &options, &code);
    }
    if (status != NATS_OK) {
        return failure(fmt::format("no cards of {} for {}", stream, consumer), status, code);
    }
    return pull_t(made);
}

// A report with an address for an answer gets one, in the order of the reports.
answer_t<done_t> connection_t::confirm_progress(const message_t& message) {
    const auto answer = request(message.reply(), "+WPI", longest_call);
    return answer ? answer_t<done_t>(done_t{}) : answer.failure();
}

answer_t<connection_t::bucket_t> connection_t::bucket(const std::string& name) {
    kvStore* found = nullptr;
    const natsStatus status = js_KeyValue(&found, stream_.get(), name.c_str());
    if (status != NATS_OK) {
        return failure("the server does not show its bucket " + name, status);
    }
    return bucket_t(found);
}

// As the library's own buckets do it, without asking for the bucket's configuration each time.
answer_t<done_t> connection_t::put(const std::string& name, const std::string& key, const std::string& value) {
    const auto stored = store(message_t(fmt::format("$KV.{}.{}", name, key), value), "");
    return stored ? answer_t<done_t>(done_t{}) : stored.failure();
}

answer_t<done_t> connection_t::drop(const std::string& name, const std::string& key) {
    message_t message(fmt::format("$KV.{}.{}", name, key), "");
    message.set_header("KV-Operation", "DEL");
    const auto stored = store(message, "");
    return stored ? answer_t<done_t>(done_t{}) : stored.failure();
}

answer_t<std::vector<entry_t>> connection_t::entries(const std::string& name) {
    auto watcher = watch(name);
    if (!watcher) {
        return watcher.failure();
    }
    std::vector<entry_t> entries;
    for (bool all = false; !all;) {
        auto entry = watcher->next(longest_call, &all);
        if (!entry) {
            return entry.failure();
        }
        if (!*entry && !all) {
            return failure("the bucket " + name, NATS_TIMEOUT);
        }
        if (*entry && (*entry)->value) {
            entries.push_back(std::move(**entry));
        }
    }
    return entries;
}

answer_t<watch_t> connection_t::watch(const std::string& name) {
    const auto found = bucket(name);
    if (!found) {
        return found.failure();
    }
    kvWatcher* made = nullptr;
    const natsStatus status = kvStore_WatchAll(&made, found->get(), nullptr);
    if (status != NATS_OK) {
        return failure("the server does not tell of its bucket " + name, status);
    }
    return watch_t(made);
}

}  // namespace nats
