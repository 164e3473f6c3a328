// zorvikctl: sends one request to the zorvik daemon on 127.0.0.1:9096 and prints its reply.
//
//   zorvikctl [--pretty] [--timeout SECONDS] REQUEST
//   REQUEST: '<json>' (any word that is no shortcut), - (read from standard input),
//            list | count, get|start|stop|delete ID
//
// The reply is printed as the daemon sent it (indented with --pretty), and a failure is
// explained on standard error. Exit status: 0 reply code 0, 1 another code, 2 usage error,
// 3 no daemon answers (nothing listens, or the connection closed without a reply), 4 time-out,
// 5 the answer is not JSON (or no reply of the service at all). docs/protocol.md is the
// reference of every request.
#include <json-c/json.h>
#include <thrift/Thrift.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>
#include <thrift/transport/TTransportException.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Zorvik.h"

namespace {

using apache::thrift::transport::TTransportException;

constexpr const char* kDaemonAddress = "127.0.0.1";
constexpr int kDaemonPort = 9096;
// As long as the router's own bus client waits; a crontab tick may drive a TV for a while.
constexpr int kDefaultTimeoutMs = 30000;
constexpr double kMsPerSecond = 1000.0;
constexpr const char* kReadStandardInput = "-";
// Bounds the string an answer announces, so that a stranger on the port cannot make this
// program allocate gigabytes; the daemon's largest replies (every scene) stay far below it.
constexpr int32_t kMaxReplySize = 64 * 1024 * 1024;
constexpr int32_t kNoContainerLimit = 0;

constexpr int kExitSuccess = 0;
constexpr int kExitErrorReply = 1;
constexpr int kExitUsage = 2;
constexpr int kExitUnreachable = 3;
constexpr int kExitTimeout = 4;
constexpr int kExitUnreadable = 5;

struct Shortcut {
  const char* name;
  const char* command;
  bool takesId;
};

constexpr Shortcut kShortcuts[] = {
    {"list", "get_scene_setting", false},
    {"count", "get_scene_count", false},
    {"get", "get_single_scene_setting", true},
    {"start", "scene_start", true},
    {"stop", "scene_stop", true},
    {"delete", "scene_delete", true},
};

struct CommandLine {
  bool help = false;
  bool pretty = false;
  int timeoutMs = kDefaultTimeoutMs;
  std::vector<std::string> words;  // the request: a shortcut and its id, a JSON text, or "-"
};

// Why no reply could be printed, and the exit status that says so.
struct Failure {
  int exitStatus;
  std::string message;
};

struct JsonDeleter {
  void operator()(json_object* object) const { json_object_put(object); }
};
using JsonDocument = std::unique_ptr<json_object, JsonDeleter>;

void printUsage(std::ostream& out) {
  out << "usage: zorvikctl [--pretty] [--timeout SECONDS] '<json request>'\n"
         "       zorvikctl [--pretty] [--timeout SECONDS] -\n"
         "       zorvikctl [--pretty] [--timeout SECONDS] list | count\n"
         "       zorvikctl [--pretty] [--timeout SECONDS] get | start | stop | delete ID\n"
         "\n"
         "Sends one request to the zorvik daemon on 127.0.0.1:9096 and prints its reply.\n"
         "  -                  read the request from standard input\n"
         "  --pretty           print the reply indented\n"
         "  --timeout SECONDS  give up connecting, sending or waiting for the reply after\n"
         "                     SECONDS (default 30)\n"
         "Shortcuts: list = get_scene_setting, count = get_scene_count,\n"
         "get = get_single_scene_setting, start = scene_start, stop = scene_stop,\n"
         "delete = scene_delete. Example:\n"
         "  zorvikctl '{\"command\":\"scene_setting\",\"name\":\"Night\",\"action_list\":[]}'\n"
         "Exit status: 0 reply code 0, 1 another code (the reply is printed), 2 usage error,\n"
         "3 no daemon answers, 4 time-out, 5 the answer is not JSON.\n"
         "Every request, reply and code: docs/protocol.md in the zorvik sources.\n";
}

std::optional<Failure> usageError(const std::string& message) {
  return Failure{kExitUsage, message};
}

// Milliseconds of a --timeout value: a positive number of seconds, fractions allowed.
std::optional<int> parseTimeoutMs(const std::string& word) {
  char* end = nullptr;
  errno = 0;
  const double seconds = std::strtod(word.c_str(), &end);
  if (word.empty() || *end != '\0' || errno != 0 || !std::isfinite(seconds)) return std::nullopt;
  const double ms = std::round(seconds * kMsPerSecond);
  if (ms < 1 || ms > INT_MAX) return std::nullopt;
  return static_cast<int>(ms);
}

// Options may stand anywhere; every other word belongs to the request.
std::optional<Failure> parseCommandLine(int argc, char** argv, CommandLine& line) {
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--help" || word == "-h") {
      line.help = true;
    } else if (word == "--pretty") {
      line.pretty = true;
    } else if (word == "--timeout") {
      if (i + 1 == argc) return usageError("--timeout needs a number of seconds");
      const std::optional<int> ms = parseTimeoutMs(argv[++i]);
      if (!ms)
        return usageError("--timeout needs a number of seconds above 0, not " +
                          std::string(argv[i]));
      line.timeoutMs = *ms;
    } else if (word.rfind("--", 0) == 0) {
      return usageError("unknown option " + word);
    } else {
      line.words.push_back(word);
    }
  }
  return std::nullopt;
}

const Shortcut* findShortcut(const std::string& word) {
  for (const Shortcut& shortcut : kShortcuts) {
    if (word == shortcut.name) return &shortcut;
  }
  return nullptr;
}

// A scene id given on the command line, when the whole word is a decimal integer.
std::optional<long> parseId(const std::string& word) {
  char* end = nullptr;
  errno = 0;
  const long id = std::strtol(word.c_str(), &end, 10);
  if (word.empty() || *end != '\0' || errno != 0) return std::nullopt;
  return id;
}

std::optional<Failure> readStandardInput(std::string& request) {
  request.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  if (std::cin.bad()) return usageError("cannot read the request from standard input");
  return std::nullopt;
}

// The request text of the command line's words: standard input, a shortcut, or else the one
// word as it stands. An empty message means the words make no request (print the usage).
std::optional<Failure> requestOf(const std::vector<std::string>& words, std::string& request) {
  if (words.empty() || words.size() > 2) return usageError("");
  const Shortcut* shortcut = findShortcut(words[0]);
  if (shortcut == nullptr && words.size() == 1) {
    if (words[0] == kReadStandardInput) return readStandardInput(request);
    request = words[0];
    return std::nullopt;
  }
  if (shortcut == nullptr || words.size() != (shortcut->takesId ? 2u : 1u)) return usageError("");
  request = std::string("{\"command\":\"") + shortcut->command + "\"";
  if (shortcut->takesId) {
    const std::optional<long> id = parseId(words[1]);
    if (!id) return usageError("not a scene id: " + words[1]);
    request += ",\"id\":" + std::to_string(*id);
  }
  request += "}";
  return std::nullopt;
}

// Thrift's own diagnostics would repeat, less clearly, the message printed on failure.
void dropThriftOutput(const char*) {}

std::string secondsText(int ms) {
  std::ostringstream text;
  text << ms / kMsPerSecond;
  return text.str();
}

Failure timeoutFailure(int timeoutMs) {
  return {kExitTimeout,
          "no reply from the zorvik daemon within " + secondsText(timeoutMs) + " s (--timeout)"};
}

// A connect that timed out reports itself as a failed open, with this in its text.
bool isTimeout(const TTransportException& error) {
  return error.getType() == TTransportException::TIMED_OUT ||
         std::strstr(error.what(), "timed out") != nullptr;
}

Failure unreadableAnswer(const apache::thrift::TException& error) {
  return {kExitUnreadable,
          std::string("the answer is no reply of the zorvik service: ") + error.what()};
}

std::string daemonAddress() {
  return std::string(kDaemonAddress) + ":" + std::to_string(kDaemonPort);
}

// Sends `request` and fills `reply`; the failure when no reply came.
std::optional<Failure> exchange(const std::string& request, int timeoutMs, std::string& reply) {
  using namespace apache::thrift;
  auto socket = std::make_shared<transport::TSocket>(kDaemonAddress, kDaemonPort);
  socket->setConnTimeout(timeoutMs);
  socket->setSendTimeout(timeoutMs);
  socket->setRecvTimeout(timeoutMs);
  auto framed = std::make_shared<transport::TFramedTransport>(socket);
  zorvik::ZorvikClient client(std::make_shared<protocol::TBinaryProtocol>(
      framed, kMaxReplySize, kNoContainerLimit, /*strict_read=*/false, /*strict_write=*/true));
  try {
    framed->open();
  } catch (const TTransportException& error) {
    if (isTimeout(error)) return timeoutFailure(timeoutMs);
    return Failure{kExitUnreachable,
                   "no zorvik daemon listens on " + daemonAddress() + " (is it running?)"};
  }
  try {
    client.request(reply, request);
    framed->close();
  } catch (const TTransportException& error) {
    if (isTimeout(error)) return timeoutFailure(timeoutMs);
    if (error.getType() == TTransportException::CORRUPTED_DATA) return unreadableAnswer(error);
    // The daemon closes the connection of a request above its size bound, and of a caller
    // beyond its number of connections.
    return Failure{kExitUnreachable,
                   "the zorvik daemon on " + daemonAddress() +
                       " closed the connection without a reply (request too large?)"};
  } catch (const TException& error) {
    return unreadableAnswer(error);
  }
  return std::nullopt;
}

int fail(const Failure& failure) {
  std::cout.flush();
  std::cerr << "zorvikctl: " << failure.message << "\n";
  return failure.exitStatus;
}

// Prints the reply (indented with `pretty`) and returns the exit status its "code" gives.
int printReply(const std::string& reply, bool pretty) {
  const JsonDocument document(json_tokener_parse(reply.c_str()));
  if (!document) {
    std::cout << reply << "\n";
    return fail({kExitUnreadable, "the reply is not JSON"});
  }
  std::cout << (pretty ? json_object_to_json_string_ext(
                             document.get(), JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED)
                       : reply)
            << "\n";
  json_object* code = nullptr;
  if (!json_object_object_get_ex(document.get(), "code", &code)) {
    return fail({kExitErrorReply, "the daemon answered without a code"});
  }
  const int value = json_object_get_int(code);
  if (value == 0) return kExitSuccess;
  return fail({kExitErrorReply, "the daemon answered code " + std::to_string(value)});
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line;
  std::string request;
  std::optional<Failure> failure = parseCommandLine(argc, argv, line);
  if (!failure && line.help) {
    printUsage(std::cout);
    return kExitSuccess;
  }
  if (!failure) failure = requestOf(line.words, request);
  if (failure && failure->message.empty()) {
    printUsage(std::cerr);
    return failure->exitStatus;
  }
  if (failure) return fail(*failure);

  apache::thrift::GlobalOutput.setOutputFunction(dropThriftOutput);
  std::string reply;
  failure = exchange(request, line.timeoutMs, reply);
  if (failure) return fail(*failure);
  return printReply(reply, line.pretty);
}
