// An appliance in which the test controls the declared ports. Of the built-in services, telnet has
// 23/tcp and snmp 161/udp.
#ifndef TAVO_TESTS_ENGINE_CONFLICT_TEST_H
#define TAVO_TESTS_ENGINE_CONFLICT_TEST_H

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "appliance.h"
#include "library_test.h"
#include "temporary_folder.h"

namespace tavo::test {

class ConflictTest : public LibraryTest, protected Appliance {
  protected:
    ~ConflictTest() override { TAVOServiceConfPortsFree(conflicts_); }

    static constexpr char kRules[] = "/usr/tavo/etc/portforward/rule.conf";
    static constexpr char kSettings[] = "/etc/tavoinfo.conf";

    static void Settings(const std::string &contents) { WriteFile(kSettings, contents); }
    static void Rules(const std::string &contents) { WriteFile(kRules, contents); }

    static std::string Rule(const std::string &appliance, const std::string &router,
                            const std::string &more = "") {
        return "[1]\nprotocol name=\"tcp\"\ns_port=\"" + appliance + "\"\nr_port=\"" + router +
               "\"\n" + more;
    }

    // Installs a service file with one section.
    static void Service(const std::string &name, const std::string &ports) {
        WriteFile("/usr/local/etc/services.d/" + name + ".sc",
                  "[" + name + "]\ntitle=T\ndesc=D\ndst.ports=\"" + ports + "\"\n");
    }

    int Ask(const std::string &ports, const std::string &protocols, int flags,
            const std::string &skip = "") {
        return TLIBIsPortConflict(skip.c_str(), ports.c_str(), protocols.c_str(), flags,
                                  &conflicts_);
    }

    std::vector<std::string> Conflicts() const { return Describe(conflicts_); }

    // Prepends an entry to the list that the caller passes.
    void HandOver(uint32_t start, uint32_t end) {
        TAVO_SERVICE_CONF_PORT port = {};
        port.nDirection = TAVO_PORT_DIRECTION_DST;
        port.nPortType = end == 0 ? TAVO_PORT_TYPE_SINGLE : TAVO_PORT_TYPE_RANGE;
        port.nProtocol = TAVO_PROTO_TCP;
        port.nPortStart = start;
        port.nPortEnd = end;
        ASSERT_EQ(TAVOServiceComposePortInfo(&port, &conflicts_), 0);
    }

    TAVO_SERVICE_CONF_PORT *conflicts_ = nullptr;
};

}  // namespace tavo::test

#endif
