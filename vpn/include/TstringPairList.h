// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_TSTRINGPAIRLIST_H
#define QUILLNET_TSTRINGPAIRLIST_H

#include <list>
#include <string>
#include <utility>

// An ordered list of (name, value) pairs: the attributes handed to the XML writer.
typedef std::list<std::pair<std::string, std::string>> TStrPairList;

#endif  // QUILLNET_TSTRINGPAIRLIST_H
