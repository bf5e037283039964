# The kernels in the order of the embedded table: "name" or "name|source|defines".
set(OMBRELUX_KERNELS
  activate
  preprocess_forward
  preprocess_backward
  bin_count
  bin_write
  depth_keys
  tile_ranges
  rasterize_forward
  "rasterize_backward:SG=1,NATIVE_ATOMIC=1|rasterize_backward|SG=1 NATIVE_ATOMIC=1"
  "rasterize_backward:SG=1,NATIVE_ATOMIC=0|rasterize_backward|SG=1 NATIVE_ATOMIC=0"
  "rasterize_backward:SG=0,NATIVE_ATOMIC=1|rasterize_backward|SG=0 NATIVE_ATOMIC=1"
  "rasterize_backward:SG=0,NATIVE_ATOMIC=0|rasterize_backward|SG=0 NATIVE_ATOMIC=0"
  scan_block
  scan_add
  radix_hist
  radix_scatter
  u8_to_f32
  composite_background
  ssim_stack_blur_h
  ssim_blur15
  ssim_tail_forward
  ssim_tail_backward
  ssim_chain_backward
  loss_grad
  loss_partials
  activation_backward
  adam
  grad_stats
  add_noise
  rgb_to_rgba8
  sift_match_tiles
  sift_match_reduce
  sift_match_cross

  # Beyond the fixed part of the table.
  gather_rows
  weigh_near_gradients
  flag_diverged
  radix_runs_count
  radix_runs_scatter
  scan_runs
  rasterize_forward_wide
  rasterize_backward_wide
  rasterize_forward_pairs
  rasterize_backward_pairs
  loss_strips
  accumulated_gradient
  multiply_add_peak
  adam_quads
  "sift_match_tiles_packed|sift_match_tiles|PACKED_DOT=1"
  sift_match_tiles_wide
  "activate_scaled|activate|SCALED=1"
)
