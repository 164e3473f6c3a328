// DeviceTunnel: hands messages for smart-home devices to the router's device tunnel tool.
//
// The tool takes a numeric form selector and one argument, the message in base64 (unpadded).
// "quiro" and "lumdex" actions use form 6; the TV helper's wake-on-LAN uses the same line.
// Lines are logged as part of the action module (kActionLogModule).
//
// Threading: stateless static functions; any thread may call them. Nothing is owned.
#ifndef ZORVIK_ACTION_DEVICETUNNEL_H_
#define ZORVIK_ACTION_DEVICETUNNEL_H_

#include <string>

namespace zorvik {

class DeviceTunnel {
 public:
  // The form selector of device messages and of the TV's wake-on-LAN.
  static constexpr int kDeviceForm = 6;
  // The selector-7 twin of the device form; no action word selects it.
  static constexpr int kForm7 = 7;

  // Standard base64 alphabet, most significant bits first, the last partial group filled with
  // zero bits, no "=" padding and no line breaks ("ab" gives "YWI").
  static std::string base64Encode(const std::string& text);

  // "/usr/sbin/pellway <form> '<base64 of message>'". The encoded text never holds a quote.
  static std::string tunnelLine(int form, const std::string& message);

  // Runs the form-6 line for `payload` (sent byte for byte, also when empty), logging it at the
  // info level and a failure at the error level.
  static void doTunnel(const std::string& payload);
  // The same with form 7. Always true.
  static bool doTunnelForm7(const std::string& payload);
};

}  // namespace zorvik

#endif  // ZORVIK_ACTION_DEVICETUNNEL_H_
