// SPDX-License-Identifier: Apache-2.0
#ifndef TSTRINGPAIRLIST_H
#define TSTRINGPAIRLIST_H

#include <list>
#include <string>
#include <utility>

// An ordered list of (name, value) pairs: the attributes handed to the XML writer.
typedef std::list<std::pair<std::string, std::string>> TStrPairList;

#endif  // TSTRINGPAIRLIST_H
