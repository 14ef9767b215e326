// The reason of a failed change or notification in words.
#ifndef TAVO_SERVICETOOL_CHANGE_FAILURE_TEXT_H
#define TAVO_SERVICETOOL_CHANGE_FAILURE_TEXT_H

#include <string>
#include <vector>

#include "lifecycle/step_failure.h"

namespace tavo::tool {

// Why a step failed whose change is about the file at `path`; empty where it did not. What the
// program of the step said last among `output` is quoted.
std::string ReasonText(const StepFailure &failure, const std::string &path,
                       const std::vector<std::string> &output);

}  // namespace tavo::tool

#endif
