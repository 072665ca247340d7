#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_PROGRAM_MAIN_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_PROGRAM_MAIN_H_

#include <string>
#include <vector>

namespace linux_capture::programs {

// Runs a program with its arguments. What it throws becomes one line on
// standard error, behind the name of the program, and the exit status.
int RunProgram(const char* name, int argc, char** argv,
               int (*run)(const std::vector<std::string>& arguments));

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_PROGRAM_MAIN_H_
