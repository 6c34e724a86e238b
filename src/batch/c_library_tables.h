// Constants of c_library.h, where they come from is said there.
#pragma once

namespace shadermachine::batch {

inline constexpr double kSine[] = {-0x1.555545995a603p-3, 0x1.1107605230bc4p-7,
                                   -0x1.994eb3774cf24p-13};
inline constexpr double kCosine[] = {-0x1.ffffffd0c621cp-2, 0x1.55553e1068f19p-5,
                                     -0x1.6c087e89a359dp-10, 0x1.99343027bf8c3p-16};

// 2^x and e^x for x in 32nds (of a binary exponent).
inline constexpr double kPowerOfTwo[] = {0x1.c6af84b912394p-5, 0x1.ebfce50fac4f3p-3,
                                         0x1.62e42ff0c52d6p-1};
inline constexpr double kExponential[] = {0x1.c6af84b912394p-20, 0x1.ebfce50fac4f3p-13,
                                          0x1.62e42ff0c52d6p-6};
// 2^(i/32), with i/32 taken off the exponent.
inline constexpr double kRoots[32] = {1.0,
                                      0x1.fd9b0d3158574p-1,
                                      0x1.fb5586cf9890fp-1,
                                      0x1.f9301d0125b51p-1,
                                      0x1.f72b83c7d517bp-1,
                                      0x1.f54873168b9aap-1,
                                      0x1.f387a6e756238p-1,
                                      0x1.f1e9df51fdee1p-1,
                                      0x1.f06fe0a31b715p-1,
                                      0x1.ef1a7373aa9cbp-1,
                                      0x1.edea64c123422p-1,
                                      0x1.ece086061892dp-1,
                                      0x1.ebfdad5362a27p-1,
                                      0x1.eb42b569d4f82p-1,
                                      0x1.eab07dd485429p-1,
                                      0x1.ea47eb03a5585p-1,
                                      0x1.ea09e667f3bcdp-1,
                                      0x1.e9f75e8ec5f74p-1,
                                      0x1.ea11473eb0187p-1,
                                      0x1.ea589994cce13p-1,
                                      0x1.eace5422aa0dbp-1,
                                      0x1.eb737b0cdc5e5p-1,
                                      0x1.ec49182a3f09p-1,
                                      0x1.ed503b23e255dp-1,
                                      0x1.ee89f995ad3adp-1,
                                      0x1.eff76f2fb5e47p-1,
                                      0x1.f199bdd85529cp-1,
                                      0x1.f3720dcef9069p-1,
                                      0x1.f5818dcfba487p-1,
                                      0x1.f7c97337b9b5fp-1,
                                      0x1.fa4afa2a490dap-1,
                                      0x1.fd0765b6e454p-1};

inline constexpr double kLogarithm[] = {-0x1.00ea348b88334p-2, 0x1.5575b0be00b6ap-2,
                                        -0x1.ffffef20a4123p-2};
inline constexpr double kBinaryLogarithm[] = {0x1.27616c9496e0bp-2, -0x1.71969a075c67ap-2,
                                              0x1.ec70a6ca7baddp-2, -0x1.7154748bef6c8p-1,
                                              0x1.71547652ab82bp+0};
// Of fdlibm, for floats.
inline constexpr float kArcTangent[] = {3.3333334327e-01f,  -2.0000000298e-01f, 1.4285714924e-01f,
                                        -1.1111110449e-01f, 9.0908870101e-02f,  -7.6918758452e-02f,
                                        6.6610731184e-02f,  -5.8335702866e-02f, 4.9768779427e-02f,
                                        -3.6531571299e-02f, 1.6285819933e-02f};
inline constexpr float kArcSine[] = {1.666675248e-1f, 7.495297643e-2f, 4.547037598e-2f,
                                     2.417951451e-2f, 4.216630880e-2f};
inline constexpr float kArcCosineAbove[] = {1.6666667163e-01f, -3.2556581497e-01f,
                                            2.0121252537e-01f, -4.0055535734e-02f,
                                            7.9153501429e-04f, 3.4793309169e-05f};
inline constexpr float kArcCosineBelow[] = {-2.4033949375e+00f, 2.0209457874e+00f,
                                            -6.8828397989e-01f, 7.7038154006e-02f};

// A point c of each range: 1 / c, and minus its natural and binary logarithms.
inline constexpr double kInverses[16] = {0x1.661ec79f8f3bep+0, 0x1.571ed4aaf883dp+0,
                                         0x1.49539f0f010bp+0,  0x1.3c995b0b80385p+0,
                                         0x1.30d190c8864a5p+0, 0x1.25e227b0b8eap+0,
                                         0x1.1bb4a4a1a343fp+0, 0x1.12358f08ae5bap+0,
                                         0x1.0953f419900a7p+0, 1.0,
                                         0x1.e608cfd9a47acp-1, 0x1.ca4b31f026aap-1,
                                         0x1.b2036576afce6p-1, 0x1.9c2d163a1aa2dp-1,
                                         0x1.886e6037841edp-1, 0x1.767dcf5534862p-1};
inline constexpr double kLogarithms[16] = {-0x1.57bf7808caadep-2, -0x1.2bef0a7c06ddbp-2,
                                           -0x1.01eae7f513a67p-2, -0x1.b31d8a68224e9p-3,
                                           -0x1.6574f0ac07758p-3, -0x1.1aa2bc79c81p-3,
                                           -0x1.a4e76ce8c0e5ep-4, -0x1.1973c5a611cccp-4,
                                           -0x1.252f438e10c1ep-5, 0.0,
                                           0x1.aa5aa5df25984p-5,  0x1.c5e53aa362eb4p-4,
                                           0x1.526e57720db08p-3,  0x1.bc2860d22477p-3,
                                           0x1.1058bc8a07ee1p-2,  0x1.4043057b6ee09p-2};
inline constexpr double kBinaryLogarithms[16] = {-0x1.efec65b963019p-2, -0x1.b0b6832d4fca4p-2,
                                                 -0x1.7418b0a1fb77bp-2, -0x1.39de91a6dcf7bp-2,
                                                 -0x1.01d9bf3f2b631p-2, -0x1.97c1d1b3b7afp-3,
                                                 -0x1.2f9e393af3c9fp-3, -0x1.960cbbf788d5cp-4,
                                                 -0x1.a6f9db6475fcep-5, 0.0,
                                                 0x1.338ca9f24f53dp-4,  0x1.476a9543891bap-3,
                                                 0x1.e840b4ac4e4d2p-3,  0x1.40645f0c6651cp-2,
                                                 0x1.88e9c2c1b9ff8p-2,  0x1.ce0a44eb17bccp-2};

}  // namespace shadermachine::batch
