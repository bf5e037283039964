// SSIM's terms at item i = c P + p from the 15 blurred planes (Wang et al. 2004, equation 13).
struct SsimTerms {
  float mx, my;
  float A, B, C, D;  // SSIM = A B / (C D)
};

SsimTerms ssimTerms(uint i, uint pixels) {
  const uint stride = 3u * pixels;
  SsimTerms t;
  t.mx = planes[i];
  t.my = planes[stride + i];
  const float sxx = planes[2u * stride + i] - t.mx * t.mx;
  const float syy = planes[3u * stride + i] - t.my * t.my;
  const float sxy = planes[4u * stride + i] - t.mx * t.my;
  t.A = 2.0 * t.mx * t.my + SSIM_C1;
  t.B = 2.0 * sxy + SSIM_C2;
  t.C = t.mx * t.mx + t.my * t.my + SSIM_C1;
  t.D = sxx + syy + SSIM_C2;
  return t;
}
