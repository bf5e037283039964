// The 11-tap Gaussian window of SSIM (Wang et al. 2004), standard deviation 1.5; taps outside the image are skipped and
// the rest not renormalised.
const int kRadius = 5;
const float kWindow[11] = float[](0.00102838, 0.00759876, 0.03600077, 0.10936069, 0.21300554, 0.26601171, 0.21300554,
                                  0.10936069, 0.03600077, 0.00759876, 0.00102838);
