// Angle bracket: a base with four bolt holes, an upright with a bearing bore, a rib between them.
// Lengths in mm. Base in the plane z = 0, back of the upright in x = 0, symmetric about y = 0.
// scripts/cad_parts makes bracket.step from it.
//
// Faces of bracket.step by their numbers (area in mm2; place):
//   33  34  35  36  bolt holes (414.690 each; axis at x y = 40 -32, 98 -32, 40 32, 98 32)
//   14              bearing bore (1357.168; axis along x at y = 0, z = 90)
//   19              underside of the base, z = 0 (11523.296)
//   15              top of the base, z = 12 (8164.327)
//   20              back of the upright, x = 0 (10885.553)
//    1              front of the upright, x = 12 (7866.584)
//    2  13          inner fillet, at y > 0 and at y < 0 (628.319 each)
SetFactory("OpenCASCADE");

length = 120;      // of the base, along x
width = 100;       // of base and upright, along y
height = 120;      // of the upright, along z
thick = 12;        // of base and upright
inner = 10;        // radius of the fillet between base and upright
corner = 15;       // radius of the two front corners of the base and the two top corners of the upright
rib_thick = 12;
rib_length = 65;   // along the base, from the upright's face
rib_height = 48;   // along the upright, from the base's face
rib_toe = 10;      // height of the rib's blunt ends
rib_round = 3;     // radius of the upright edges of the blunt ends
rib_fillet = 4;    // radius where the rib meets base and upright
bolt = 11;         // diameter of the bolt holes
bolt_x1 = 40;      // the two rows of bolt holes
bolt_x2 = 98;
bolt_y = 32;       // half their distance across
bore = 36;         // diameter of the bearing bore
bore_z = 90;       // its height above the plane z = 0

half = width / 2;
half_rib = rib_thick / 2;
foot_end = thick + rib_length;
head_end = thick + rib_height;
tiny = 0.01;

// Base and upright with the fillet between them and their rounded outer corners. A fillet makes a
// new volume, so that the body is kept by its number.
Box(1) = {0, -half, 0, length, width, thick};
Box(2) = {0, -half, 0, thick, width, height};
body[] = BooleanUnion { Volume{1}; Delete; }{ Volume{2}; Delete; };
edge[] = Curve In BoundingBox {thick - tiny, -half - tiny, thick - tiny, thick + tiny, half + tiny, thick + tiny};
body[] = Fillet {body[0]}{edge[]}{inner};
edge[] = {};
For side In {-1:1:2}
  y = side * half;
  edge[] += Curve In BoundingBox {length - tiny, y - tiny, -tiny, length + tiny, y + tiny, thick + tiny};
  edge[] += Curve In BoundingBox {-tiny, y - tiny, height - tiny, thick + tiny, y + tiny, height + tiny};
EndFor
body[] = Fillet {body[0]}{edge[]}{corner};

// The rib reaches into base and upright by half their thickness. Its blunt ends have round edges.
p = newp;
Point(p) = {thick / 2, -half_rib, thick / 2};
Point(p + 1) = {foot_end, -half_rib, thick / 2};
Point(p + 2) = {foot_end, -half_rib, thick + rib_toe};
Point(p + 3) = {thick + rib_toe, -half_rib, head_end};
Point(p + 4) = {thick / 2, -half_rib, head_end};
c = newc;
For i In {0:4}
  Line(c + i) = {p + i, p + (i + 1) % 5};
EndFor
s = news;
Curve Loop(s) = {c : c + 4};
Plane Surface(s) = {s};
rib[] = Extrude {0, rib_thick, 0} { Surface{s}; };
edge[] = {};
For side In {-1:1:2}
  y = side * half_rib;
  edge[] += Curve In BoundingBox {foot_end - tiny, y - tiny, 0, foot_end + tiny, y + tiny, thick + rib_toe + tiny};
  edge[] += Curve In BoundingBox {0, y - tiny, head_end - tiny, thick + rib_toe + tiny, y + tiny, head_end + tiny};
EndFor
rib[] = Fillet {rib[1]}{edge[]}{rib_round};
body[] = BooleanUnion { Volume{body[0]}; Delete; }{ Volume{rib[0]}; Delete; };

// Fillet round the foot of the rib: on the base, on the upright and across the inner fillet.
edge[] = Curve In BoundingBox {thick - tiny, -half_rib - tiny, thick - tiny, foot_end + tiny, half_rib + tiny, thick + tiny};
edge[] += Curve In BoundingBox {thick - tiny, -half_rib - tiny, thick - tiny, thick + tiny, half_rib + tiny, head_end + tiny};
edge[] += Curve In BoundingBox {thick - tiny, -half_rib - tiny, thick - tiny, thick + inner + tiny, half_rib + tiny, thick + inner + tiny};
edge[] = Unique(edge[]);
body[] = Fillet {body[0]}{edge[]}{rib_fillet};

// Holes.
x[] = {bolt_x1, bolt_x2};
For i In {0:1}
  For side In {-1:1:2}
    hole = newv;
    Cylinder(hole) = {x[i], side * bolt_y, -1, 0, 0, thick + 2, bolt / 2};
    holes[] += hole;
  EndFor
EndFor
hole = newv;
Cylinder(hole) = {-1, 0, bore_z, thick + 2, 0, 0, bore / 2};
BooleanDifference { Volume{body[0]}; Delete; }{ Volume{holes[], hole}; Delete; }
