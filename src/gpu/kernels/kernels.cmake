# The kernels in the order of the embedded table: "name" or "name|source|defines".
set(OMBRELUX_KERNELS
  scan_block
  scan_add
  radix_hist
  radix_scatter
)
