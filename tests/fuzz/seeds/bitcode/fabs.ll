declare <4 x float> @__ocl_tuvo_e9_fabsf4(<4 x float>)
define spir_func <4 x float> @_Z4fabsDv4_f(<4 x float> %x) alwaysinline {
  %y = call <4 x float> @__ocl_tuvo_e9_fabsf4(<4 x float> %x)
  ret <4 x float> %y
}
