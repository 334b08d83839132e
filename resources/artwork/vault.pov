// Fundo02: dawn. The drive comes to the vault's door, whose seam lets warm light through.
#version 3.7;
global_settings { assumed_gamma 1.0 max_trace_level 6 }
#include "studio.inc"

ShiftedCamera(<0, 0, -11>, 0, 2.6)

sky_sphere {
    pigment {
        function { min(0.999, pow(max(0, x * -0.35 + y * 0.62 - z * 0.70), 4)) }
        color_map {
            [0.0 rgb <0.0006, 0.0022, 0.0060>]
            [0.3 rgb <0.003, 0.030, 0.085>]
            [0.7 rgb <0.020, 0.130, 0.330>]
            [1.0 rgb <0.160, 0.400, 0.700>]
        }
    }
}

light_source {
    <-3.8, 6.5, -6>, rgb <0.72, 0.88, 1.05> * 1.7
    spotlight point_at <1.7, 1.9, 0> radius 2 falloff 20
}
light_source {
    <6.2, 4.5, -2.0>, rgb <0.10, 0.42, 1.0> * 1.3
    spotlight point_at <2.6, 1.9, 0> radius 6 falloff 34
    shadowless
}
light_source { <-3.5, 4.5, -5>, rgb <0.06, 0.30, 0.80> * 1.1 spotlight point_at <-2.8, 1.9, 0> radius 4 falloff 30 shadowless }
light_source { <-1, -3, -8>, rgb <0.010, 0.050, 0.130> * 0.9 shadowless }
SoftBox(<-7, 5, -9>, <1, 6, -4>, <0.35, 0.68, 1.0> * 1.1)
SoftBox(<-9, -3, -6>, <-8.9, 4, -3>, <0.10, 0.35, 0.75> * 0.8)

#declare Wall = texture {
    pigment { rgb <0.0035, 0.018, 0.050> }
    finish { ambient 0 diffuse 0.75 reflection rgb <0.010, 0.022, 0.035> }
}
#declare DoorSteel = texture {
    pigment { rgb <0.020, 0.082, 0.190> }
    normal { wood 0.10 ramp_wave turbulence 0.02 scale 0.021 }
    finish { ambient 0 diffuse 0.45 specular 0.35 roughness 0.05 metallic reflection { rgb <0.05, 0.10, 0.16>, rgb <0.35, 0.5, 0.65> metallic } }
}
#declare BrightSteel = texture {
    pigment { rgb <0.10, 0.22, 0.42> }
    finish { ambient 0 diffuse 0.30 specular 0.8 roughness 0.02 metallic reflection { rgb <0.18, 0.24, 0.32>, rgb <0.6, 0.7, 0.8> metallic } }
}

// A ring with rounded front edges whose front lies at z = -Front.
#macro Ring(Inner, Outer, Front, Edge)
    union {
        difference {
            cylinder { <0, 0, -Front + Edge>, <0, 0, 0.4>, Outer }
            cylinder { <0, 0, -Front - 1>, <0, 0, 1>, Inner }
        }
        difference {
            cylinder { <0, 0, -Front>, <0, 0, 0.3>, Outer - Edge }
            cylinder { <0, 0, -Front - 1>, <0, 0, 1>, Inner + Edge }
        }
        torus { Outer - Edge, Edge rotate x * 90 translate z * (Edge - Front) }
        torus { Inner + Edge, Edge rotate x * 90 translate z * (Edge - Front) }
    }
#end

// The wall: plates with bevelled joints.
#declare PlateSize = 1.15;
#declare Row = -3;
#while (Row < 3)
    #declare Column = -5;
    #while (Column < 5)
        difference {
            object {
                RoundedBox(<0.008, 0.008, 0>, <PlateSize - 0.008, PlateSize - 0.008, 0.5>, 0.018)
                translate <Column * PlateSize, Row * PlateSize + 0.2, 0>
            }
            cylinder { <2.75, 1.40, -1>, <2.75, 1.40, 1>, 2.56 }
            texture { Wall }
        }
        #declare Column = Column + 1;
    #end
    #declare Row = Row + 1;
#end
plane { z, 0.35 texture { pigment { rgb <0.0006, 0.003, 0.009> } finish { ambient 0 diffuse 0.5 } } hollow }

union {
    object { Ring(2.20, 2.54, 0.10, 0.05) texture { DoorSteel } }
    // The seam.
    object {
        Ring(2.15, 2.20, -0.12, 0.01)
        texture {
            pigment {
                function { min(0.999, max(0, (y + 1.0) / 2.2)) }
                color_map { [0 rgb <0.003, 0.028, 0.120>] [0.5 rgb Amber * 0.25] [1 rgb Amber * 1.2] }
            }
            finish { ambient 0 diffuse 0 emission 1 }
        }
    }
    object { Ring(1.66, 2.12, 0.16, 0.06) texture { DoorSteel } }
    object { Ring(1.585, 1.66, 0.07, 0.02) texture { BrightSteel } }
    object { Ring(0.835, 1.58, 0.10, 0.04) texture { DoorSteel } }
    object {
        Ring(0.80, 0.83, 0.13, 0.012)
        texture {
            pigment {
                function { min(0.999, max(0, (y + 0.15) / 0.75)) }
                color_map { [0 rgb <0.003, 0.026, 0.110>] [1 rgb <0.09, 0.38, 0.85>] }
            }
            finish { ambient 0 diffuse 0 emission 1 }
        }
    }
    cylinder { <0, 0, -0.06>, <0, 0, 0.4>, 0.81 texture { DoorSteel } }
    #declare I = 0;
    #while (I < 24)
        union {
            cylinder { <1.89, 0, -0.21>, <1.89, 0, 0>, 0.062 }
            sphere { 0, 0.062 scale <1, 1, 0.35> translate <1.89, 0, -0.21> }
            rotate z * (I * 15 + 7.5)
            texture { BrightSteel }
        }
        #declare I = I + 1;
    #end
    // The hand wheel.
    union {
        torus { 0.54, 0.050 rotate x * 90 translate z * -0.42 }
        #declare I = 0;
        #while (I < 5)
            union {
                cylinder { <0.28, 0, -0.40>, <0.54, 0, -0.42>, 0.036 }
                cylinder { <0.54, 0, -0.42>, <0.66, 0, -0.42>, 0.030 }
                sphere { <0.68, 0, -0.42>, 0.062 }
                rotate z * (I * 72 + 90)
            }
            #declare I = I + 1;
        #end
        texture { BrightSteel }
    }
    object { Ring(0.27, 0.34, 0.46, 0.03) texture { BrightSteel } }
    cylinder { <0, 0, -0.40>, <0, 0, 0>, 0.28 texture { DoorSteel } }
    difference {
        object { ShieldPlate(0.36, 0.05) }
        object { Keyhole(0.42, 1) translate -y * 0.5 }
        rotate x * -90
        translate <0, 0, -0.43>
        texture { BrightSteel }
    }
    difference {
        object { ShieldPlate(0.385, 0.035) }
        object { ShieldPlate(0.365, 1) translate -y * 0.5 }
        rotate x * -90
        translate <0, 0, -0.43>
        Glow(<0.09, 0.38, 0.85> * 0.8)
    }
    object { Keyhole(0.42, 0.005) rotate x * -90 translate <0, 0, -0.405> Glow(Amber * 1.3) }
    translate <2.75, 1.40, 0>
}

object {
    Drive(Ice)
    interior { ior 2.2 }
    translate y * -0.2
    rotate y * 180
    rotate x * -52
    rotate y * 14
    scale 0.62
    translate <-1.05, 1.37, -1.3>
    no_shadow
    no_reflection
}
