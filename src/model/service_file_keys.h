// The section and key names of a service file.
#ifndef TAVO_SRC_MODEL_SERVICE_FILE_KEYS_H
#define TAVO_SRC_MODEL_SERVICE_FILE_KEYS_H

#include <cstdint>

namespace tavo {

// The section that describes the file; every other section is a service.
constexpr char kGlobalSection[] = "global";
constexpr char kKeyVersion[] = "version";
constexpr char kKeySupportKey[] = "support_key";
constexpr char kKeyRunKey[] = "run_key";

constexpr char kKeyTitleKey[] = "title_key";
constexpr char kKeyTitle[] = "title";
constexpr char kKeyDescKey[] = "desc_key";
constexpr char kKeyDesc[] = "desc";
constexpr char kKeyDescExtra[] = "desc_extra";
constexpr char kKeyPortForward[] = "port_forward";
constexpr unsigned int kForwardTextSize = 32;  // of its value; a longer one is not "yes"
constexpr char kKeySrcPorts[] = "src.ports";
constexpr char kKeyDstPorts[] = "dst.ports";

// The key for the ports of a direction. Any direction other than source is destination.
constexpr const char *PortsKey(uint32_t direction) {
    return direction == 0 ? kKeySrcPorts : kKeyDstPorts;
}

}  // namespace tavo

#endif
