// ResultCode: the "code" values of the daemon's replies. Their messages live with the reply
// builders of ZorvikTunnel.
#ifndef ZORVIK_SERVER_RESULTCODE_H_
#define ZORVIK_SERVER_RESULTCODE_H_

namespace zorvik {

enum ResultCode : int {
  kApiNotExists = -1,
  kSuccess = 0,
  kParameterMissing = 1,
  kParameterEmpty = 2,
  kParameterFormatError = 3,
  kUnknownError = 4,
  kUpdateDatabaseFailed = 3501,
  kSceneNotFound = 3502,
  kThirdPartyUnsupported = 3503,
  kHalvexReturnError = 3504,
  kSceneIsProcessing = 3505,
  kSceneHasNoHomeLaunch = 3506,
};

}  // namespace zorvik

#endif  // ZORVIK_SERVER_RESULTCODE_H_
