// What mcp may not include: project may use colmap, but mcp may not.
#include "colmap/model.h"
