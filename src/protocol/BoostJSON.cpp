// Boost.JSON is used from its headers alone; this file holds its one compiled copy.
#include <boost/json/src.hpp>
