// Inclusive prefix sum over the 256 invocations of a group by doubling, in shared memory; needs no subgroup operations.
// Reached by all invocations together. The last one's result, the group's total, stays in group_sums[255] until the next
// call. Begins with a barrier, so shared memory that was read before may be written after.
shared uint group_sums[256];

uint groupInclusiveSum(uint value) {
  const uint t = gl_LocalInvocationID.x;
  group_sums[t] = value;
  for (uint offset = 1u; offset < 256u; offset <<= 1) {
    barrier();
    const uint earlier = t >= offset ? group_sums[t - offset] : 0u;
    barrier();
    group_sums[t] += earlier;
  }
  barrier();
  return group_sums[t];
}
