// What mcp may include.
#include "project/project.h"
