#ifndef OSTREL_PLATFORM_BASE_PROGRAM_FOLDER_H
#define OSTREL_PLATFORM_BASE_PROGRAM_FOLDER_H

// Internal. The folders in which a name of a program or module is looked for first.

#include <string>

namespace ostrel_platform {

// Returns the program's folder with a '/' at its end. Returns an empty text when the host does not
// tell, and in a program that has rights which its caller lacks.
std::string program_folder();

// Returns the folder of the layer's own programs, beside the layer's library, with a '/' at its
// end. Returns an empty text when the host does not tell.
std::string tools_folder();

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_PROGRAM_FOLDER_H
