// The real SH basis of degrees 1 to 3 at a unit direction, in the order in which the coefficients are stored, and its
// derivatives with respect to the direction's components (taken as independent).

// Coefficients above degree 0 at each degree.
uint shRestCount(uint degree) { return degree == 0u ? 0u : degree == 1u ? 3u : degree == 2u ? 8u : 15u; }

void shBasis(vec3 d, out float basis[15]) {
  const float x = d.x, y = d.y, z = d.z;
  const float xx = x * x, yy = y * y, zz = z * z;
  basis[0] = -SH_C1 * y;
  basis[1] = SH_C1 * z;
  basis[2] = -SH_C1 * x;
  basis[3] = SH_C2_0 * x * y;
  basis[4] = -SH_C2_0 * y * z;
  basis[5] = SH_C2_1 * (2.0 * zz - xx - yy);
  basis[6] = -SH_C2_0 * x * z;
  basis[7] = SH_C2_2 * (xx - yy);
  basis[8] = -SH_C3_0 * y * (3.0 * xx - yy);
  basis[9] = SH_C3_1 * x * y * z;
  basis[10] = -SH_C3_4 * y * (4.0 * zz - xx - yy);
  basis[11] = SH_C3_2 * z * (2.0 * zz - 3.0 * xx - 3.0 * yy);
  basis[12] = -SH_C3_4 * x * (4.0 * zz - xx - yy);
  basis[13] = SH_C3_3 * z * (xx - yy);
  basis[14] = -SH_C3_0 * x * (xx - 3.0 * yy);
}

void shBasisGradient(vec3 d, out vec3 g[15]) {
  const float x = d.x, y = d.y, z = d.z;
  const float xx = x * x, yy = y * y, zz = z * z;
  g[0] = vec3(0.0, -SH_C1, 0.0);
  g[1] = vec3(0.0, 0.0, SH_C1);
  g[2] = vec3(-SH_C1, 0.0, 0.0);
  g[3] = SH_C2_0 * vec3(y, x, 0.0);
  g[4] = -SH_C2_0 * vec3(0.0, z, y);
  g[5] = SH_C2_1 * vec3(-2.0 * x, -2.0 * y, 4.0 * z);
  g[6] = -SH_C2_0 * vec3(z, 0.0, x);
  g[7] = SH_C2_2 * vec3(2.0 * x, -2.0 * y, 0.0);
  g[8] = -SH_C3_0 * vec3(6.0 * x * y, 3.0 * (xx - yy), 0.0);
  g[9] = SH_C3_1 * vec3(y * z, x * z, x * y);
  g[10] = -SH_C3_4 * vec3(-2.0 * x * y, 4.0 * zz - xx - 3.0 * yy, 8.0 * y * z);
  g[11] = SH_C3_2 * vec3(-6.0 * x * z, -6.0 * y * z, 6.0 * zz - 3.0 * xx - 3.0 * yy);
  g[12] = -SH_C3_4 * vec3(4.0 * zz - 3.0 * xx - yy, -2.0 * x * y, 8.0 * x * z);
  g[13] = SH_C3_3 * vec3(2.0 * x * z, -2.0 * y * z, xx - yy);
  g[14] = -SH_C3_0 * vec3(3.0 * (xx - yy), -6.0 * x * y, 0.0);
}
