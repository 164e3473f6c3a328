#include <gtest/gtest.h>

#include "server/ZorvikTunnel.h"

namespace zorvik {
namespace {

TEST(ErrorReplyTest, EveryCodeOfTheTableHasItsMessage) {
  const std::pair<int, const char*> table[] = {
      {-1, "api not exists"},        {1, "parameter missing"},
      {2, "parameter empty"},        {3, "parameter format error"},
      {4, "unknown error"},          {3501, "update database failed"},
      {3502, "scene not found"},     {3503, "thirdparty unsupport"},
      {3504, "halvex return error"}, {3505, "scene is processing"},
      {3506, "scene has not home launch mode"},
  };
  for (const auto& [code, msg] : table) {
    EXPECT_EQ(ZorvikTunnel::buildErrorReply(code),
              "{ \"code\": " + std::to_string(code) + ", \"msg\": \"" + msg + "\" }");
  }
}

TEST(ErrorReplyTest, UnlistedCodesHaveAnEmptyMessage) {
  EXPECT_EQ(ZorvikTunnel::buildErrorReply(0), "{ \"code\": 0, \"msg\": \"\" }");
  EXPECT_EQ(ZorvikTunnel::buildErrorReply(5), "{ \"code\": 5, \"msg\": \"\" }");
  EXPECT_EQ(ZorvikTunnel::buildErrorReply(3507), "{ \"code\": 3507, \"msg\": \"\" }");
}

TEST(ErrorReplyTest, ObjectCanBeExtendedByTheCaller) {
  json_object* reply = ZorvikTunnel::buildErrorObject(0);
  json_object_object_add(reply, "count", json_object_new_int(2));
  EXPECT_STREQ(json_object_to_json_string(reply), "{ \"code\": 0, \"msg\": \"\", \"count\": 2 }");
  json_object_put(reply);
}

}  // namespace
}  // namespace zorvik
