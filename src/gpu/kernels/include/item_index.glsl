// The item of this invocation of a 1-D kernel of 256 invocations a group. The groups form a grid of two dimensions, so
// that more items than one dimension of the device's grid allows can be covered; items past the count must be ignored.
uint groupIndex() { return gl_WorkGroupID.y * gl_NumWorkGroups.x + gl_WorkGroupID.x; }

uint itemIndex() { return groupIndex() * 256u + gl_LocalInvocationID.x; }
