// Fundo01: night. The drive rests on dark stone before a shield of light, and the tesserae that
// the shield is made of come to it from the left.
#version 3.7;
global_settings { assumed_gamma 1.0 max_trace_level 6 }
#include "studio.inc"

ShiftedCamera(<0, 1.8, -11>, 0.610, 2.6)

// Only reflections see the sky: a wide soft light behind the subject.
sky_sphere {
    pigment {
        function { min(0.999, pow(max(0, x * 0.24 + y * 0.18 + z * 0.95), 8)) }
        color_map {
            [0.0 rgb <0.0006, 0.0022, 0.0060>]
            [0.3 rgb <0.003, 0.030, 0.085>]
            [0.7 rgb <0.012, 0.110, 0.300>]
            [1.0 rgb <0.030, 0.230, 0.560>]
        }
    }
}

light_source {
    <-5, 7, -4>, rgb <0.80, 0.92, 1.05> * 1.1
    spotlight point_at <2.6, 0, 0> radius 8 falloff 20
}
light_source {
    <7, 3, 5>, rgb <0.25, 0.62, 1.0> * 1.6
    spotlight point_at <2.6, 0.3, 0> radius 10 falloff 30
}
light_source {
    <2, 9, 3>, rgb <0.03, 0.30, 0.85> * 1.0
    spotlight point_at <1.6, 0, 0> radius 2 falloff 34
    shadowless
}
SoftBox(<-6, 6, -3>, <5, 6.1, 0>, <0.40, 0.70, 1.0> * 0.9)
SoftBox(<-9, 0.9, -16>, <7, 1.5, -15.9>, <0.25, 0.60, 1.0> * 0.9)
SoftBox(<-8, 0.5, -3>, <-7.9, 4, 3>, <0.4, 0.7, 1.0> * 0.9)

light_source { <-2, 1.6, -9>, rgb <0.35, 0.70, 1.0> * 1.2 spotlight point_at <2.6, 0.2, 0> radius 5 falloff 12 shadowless }

TesseraFloor(rgb <0.0005, 0.0020, 0.0055>)

// Here the connector reaches down to where the text is, so it is of darker metal.
#declare Steel = texture {
    pigment { rgb <0.045, 0.105, 0.200> }
    finish {
        ambient 0 diffuse 0.35 specular 0.35 roughness 0.03 metallic
        reflection { rgb <0.10, 0.16, 0.24>, rgb <0.45, 0.55, 0.65> metallic }
    }
}
object { Drive(<0.10, 0.45, 1.0>) interior { ior 2.2 } rotate y * -22 scale 0.70 translate <2.54, 0.0, 0.45> }

#declare Dice = seed(1907);
object { MosaicShield(0.76, <0.16, 0.55, 1.0>, Dice) rotate y * 10 translate <3.24, 0.56, 1.35> }

// A ribbon of tesserae flows into it. It comes from the left, thin, and closes on its way.
#declare Pitch = 0.175;
#declare Columns = 45;
#declare Column = 0;
#while (Column < Columns)
    #declare T = Column / Columns;
    #declare Row = -2;
    #while (Row <= 2)
        #declare Loose = (1 - T) * (1 - T);
        #declare Kept = (rand(Dice) < 0.90 - 0.62 * Loose - 0.16 * abs(Row));
        #declare Shine = rand(Dice);
        #declare Jitter = <rand(Dice) - 0.5, rand(Dice) - 0.5, rand(Dice) - 0.5>;
        #if (Kept)
            object {
                Tessera(0.072 * (1 - 0.45 * Loose * Shine), 0.06 + 1.5 * pow(Shine, 5))
                rotate Jitter * <30, 30, 20> * (0.35 + 1.6 * Loose)
                translate y * Row * Pitch * (1 - 0.35 * T)
                rotate x * (38 * sin(T * 5.4))
                rotate z * (9 * cos(T * 5.0))
                translate <-5.15 + Pitch * Column, 0.78 + 0.17 * sin(T * 5.0 - 0.4), 1.7 - 0.3 * T>
                          + Jitter * 0.35 * Loose
                no_reflection
            }
        #end
        #declare Row = Row + 1;
    #end
    #declare Column = Column + 1;
#end
