// Writing property XML: see property_xml.h for what it looks like.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mapi/property.h"

// A message of a class. Characters that XML 1.0 cannot hold are left out.
std::string write_property_xml(std::string_view item_class, std::string_view subject, std::string_view description,
                               const std::vector<mapi_Property>& list);
