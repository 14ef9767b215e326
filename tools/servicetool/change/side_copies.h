// What the library copies before it takes a section out, and puts back when a later step fails.
#ifndef TAVO_SERVICETOOL_CHANGE_SIDE_COPIES_H
#define TAVO_SERVICETOOL_CHANGE_SIDE_COPIES_H

#include <string>
#include <vector>

namespace tavo::tool {

struct SideCopy {
    std::string original;
    std::string path;
};

// The copies that our own process has made and that are still there. They should not be.
std::vector<SideCopy> SideCopiesLeft();

}  // namespace tavo::tool

#endif
