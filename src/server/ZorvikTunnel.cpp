#include "server/ZorvikTunnel.h"

#include "server/ResultCode.h"

namespace zorvik {
namespace {

struct ResultMessage {
  int code;
  const char* msg;
};

// The reply messages; the misspelt "thirdparty unsupport" is what callers match on.
constexpr ResultMessage kResultMessages[] = {
    {kApiNotExists, "api not exists"},
    {kParameterMissing, "parameter missing"},
    {kParameterEmpty, "parameter empty"},
    {kParameterFormatError, "parameter format error"},
    {kUnknownError, "unknown error"},
    {kUpdateDatabaseFailed, "update database failed"},
    {kSceneNotFound, "scene not found"},
    {kThirdPartyUnsupported, "thirdparty unsupport"},
    {kHalvexReturnError, "halvex return error"},
    {kSceneIsProcessing, "scene is processing"},
    {kSceneHasNoHomeLaunch, "scene has not home launch mode"},
};

}  // namespace

ZorvikTunnel& ZorvikTunnel::getInstance() {
  static ZorvikTunnel* tunnel = new ZorvikTunnel();
  return *tunnel;
}

const char* ZorvikTunnel::messageOf(int code) {
  for (const ResultMessage& entry : kResultMessages) {
    if (entry.code == code) return entry.msg;
  }
  return "";
}

json_object* ZorvikTunnel::buildErrorObject(int code) {
  json_object* object = json_object_new_object();
  json_object_object_add(object, "code", json_object_new_int(code));
  json_object_object_add(object, "msg", json_object_new_string(messageOf(code)));
  return object;
}

std::string ZorvikTunnel::buildErrorReply(int code) {
  json_object* object = buildErrorObject(code);
  std::string text = json_object_to_json_string(object);
  json_object_put(object);
  return text;
}

}  // namespace zorvik
