// places.h - where files are looked for: directories and default types of the user's choice
#ifndef KUQ_PLACES_H
#define KUQ_PLACES_H

#include <string>

#include "application.h"

namespace kuq
{

// The file that a name stands for. "-" and the name of anything that exists, unless it is a
// directory, stand for themselves. Else the name is tried with each default type; then, when it has no directory
// part, in each directory of KU_PATH and of the setting `path`, as it is when it has a type,
// else with each of them. The types are the setting `types`, or sql.
// When there is none, the name itself if it has a directory part or is a directory; else "",
// with KUQAA_NOWHERE pushed, which names the places.
std::string find_file(application &app, const std::string &name);

} // namespace kuq

#endif
