// zorvikctl: sends one request to the zorvik daemon on 127.0.0.1:9096 and prints its reply.
//
//   zorvikctl '<json>'      the request as it stands (any argument that is no shortcut)
//   zorvikctl list | count  all scenes, the number of scenes
//   zorvikctl get|start|stop|delete ID
//
// The exit status is 0 when the reply's "code" is 0, 1 when the daemon answered another code,
// 2 for a usage error and 3 when the daemon could not be reached.
#include <json-c/json.h>
#include <thrift/Thrift.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "Zorvik.h"

namespace {

constexpr const char* kDaemonAddress = "127.0.0.1";
constexpr int kDaemonPort = 9096;
constexpr int kConnectTimeoutMs = 2000;
// A scene start or a crontab tick may wait behind other requests for a while.
constexpr int kReplyTimeoutMs = 60000;

constexpr int kExitSuccess = 0;
constexpr int kExitErrorReply = 1;
constexpr int kExitUsage = 2;
constexpr int kExitUnreachable = 3;

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

void printUsage(std::ostream& out) {
  out << "usage: zorvikctl '<json request>'\n"
         "       zorvikctl list | count\n"
         "       zorvikctl get | start | stop | delete ID\n"
         "\n"
         "Sends one request to the zorvik daemon on 127.0.0.1:9096 and prints its reply.\n"
         "Shortcuts: list = get_scene_setting, count = get_scene_count,\n"
         "get = get_single_scene_setting, start = scene_start, stop = scene_stop,\n"
         "delete = scene_delete. Example:\n"
         "  zorvikctl '{\"command\":\"scene_setting\",\"name\":\"Night\",\"action_list\":[]}'\n";
}

const Shortcut* findShortcut(const char* word) {
  for (const Shortcut& shortcut : kShortcuts) {
    if (std::strcmp(word, shortcut.name) == 0) return &shortcut;
  }
  return nullptr;
}

// A scene id given on the command line, when the whole word is a decimal integer.
std::optional<long> parseId(const char* word) {
  char* end = nullptr;
  errno = 0;
  const long id = std::strtol(word, &end, 10);
  if (*word == '\0' || *end != '\0' || errno != 0) return std::nullopt;
  return id;
}

// The request text of a command line: a shortcut, or else the one argument as it stands;
// nothing (after a message) when the command line makes no sense.
std::optional<std::string> requestOf(int argc, char** argv) {
  const Shortcut* shortcut = findShortcut(argv[1]);
  if (shortcut == nullptr && argc == 2) return std::string(argv[1]);
  if (shortcut == nullptr || argc != (shortcut->takesId ? 3 : 2)) {
    printUsage(std::cerr);
    return std::nullopt;
  }
  const std::string head = std::string("{\"command\":\"") + shortcut->command + "\"";
  if (!shortcut->takesId) return head + "}";
  const std::optional<long> id = parseId(argv[2]);
  if (!id) {
    std::cerr << "zorvikctl: not a scene id: " << argv[2] << "\n";
    return std::nullopt;
  }
  return head + ",\"id\":" + std::to_string(*id) + "}";
}

// Thrift's own diagnostics would repeat, less clearly, the message printed on failure.
void dropThriftOutput(const char*) {}

std::string send(const std::string& request) {
  using namespace apache::thrift;
  auto socket = std::make_shared<transport::TSocket>(kDaemonAddress, kDaemonPort);
  socket->setConnTimeout(kConnectTimeoutMs);
  socket->setRecvTimeout(kReplyTimeoutMs);
  auto framed = std::make_shared<transport::TFramedTransport>(socket);
  zorvik::ZorvikClient client(std::make_shared<protocol::TBinaryProtocol>(framed));
  framed->open();
  std::string reply;
  client.request(reply, request);
  framed->close();
  return reply;
}

// The reply's "code", or nothing when the reply is not an object with one.
std::optional<int> codeOf(const std::string& reply) {
  json_object* document = json_tokener_parse(reply.c_str());
  json_object* code = nullptr;
  std::optional<int> result;
  if (json_object_object_get_ex(document, "code", &code)) result = json_object_get_int(code);
  json_object_put(document);
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    printUsage(std::cerr);
    return kExitUsage;
  }
  if (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
    printUsage(std::cout);
    return kExitSuccess;
  }
  const std::optional<std::string> request = requestOf(argc, argv);
  if (!request) return kExitUsage;

  apache::thrift::GlobalOutput.setOutputFunction(dropThriftOutput);
  std::string reply;
  try {
    reply = send(*request);
  } catch (const apache::thrift::TException& error) {
    std::cerr << "zorvikctl: no answer from the zorvik daemon on " << kDaemonAddress << ":"
              << kDaemonPort << " (is it running?): " << error.what() << "\n";
    return kExitUnreachable;
  }
  std::cout << reply << "\n";
  const std::optional<int> code = codeOf(reply);
  if (code == 0) return kExitSuccess;
  std::cerr << "zorvikctl: the daemon answered "
            << (code ? "code " + std::to_string(*code) : std::string("without a code")) << "\n";
  return kExitErrorReply;
}
