// Connecting rod: two bored ends, a tapered shank of I-section between them, two bolt holes in the
// lugs beside the big end. Lengths in mm. The big end's axis is z through the origin, the small
// end's stands at x = centres; symmetric about y = 0 and z = 0.
// scripts/cad_parts makes connecting_rod.step from it.
//
// Faces of connecting_rod.step by their numbers (area in mm2; place):
//   22              big end's bore (3015.929; axis at x = 0, y = 0)
//   31              small end's bore (1382.301; axis at x = 150, y = 0)
//   33  34          bolt holes (753.982 each; axes along x at y = -40 and y = 40)
//    1  32          the two sides, z = -10 and z = 10 (5211.328 each)
//    9  18          lugs under the bolt heads, x = 15, at y < 0 and y > 0 (228.559 each)
//   13  21          lugs on the other side, x = -15, at y < 0 and y > 0 (228.559 each)
//   51  60          floors of the pockets, z = -4 and z = 4 (924.662 each)
SetFactory("OpenCASCADE");

centres = 150;     // distance of the two bores
big_bore = 48;     // diameters
big_outer = 70;
small_bore = 22;
small_outer = 38;
thick = 20;        // of the whole, along z
shank_big = 36;    // width of the shank across at x = 0 ...
shank_small = 22;  // ... and at x = centres
blend = 18;        // radius between the shank's flanks and the ends
pocket_depth = 6;  // on either side: the web is thick - 2 * pocket_depth
pocket_from = 50;  // its ends along x
pocket_to = 120;
flange = 5;        // width of the I's flanges
pocket_round = 4;  // radius of the pocket's corners
pocket_fillet = 2; // radius round its floor
lug = 96;          // width across the two bolt lugs
lug_length = 30;   // along x
lug_blend = 4;     // radius between a lug and the outer cylinder
bolt = 8;          // diameter of the bolt holes, along x
bolt_y = 40;       // half their distance

half = thick / 2;
tiny = 0.01;
taper = (shank_small - shank_big) / 2 / centres; // slope of a flank

// Outline: two cylinders, the lugs, the shank.
Cylinder(1) = {0, 0, -half, 0, 0, thick, big_outer / 2};
Cylinder(2) = {centres, 0, -half, 0, 0, thick, small_outer / 2};
Box(3) = {-lug_length / 2, -lug / 2, -half, lug_length, lug, thick};
p = newp;
Point(p) = {0, -shank_big / 2, -half};
Point(p + 1) = {centres, -shank_small / 2, -half};
Point(p + 2) = {centres, shank_small / 2, -half};
Point(p + 3) = {0, shank_big / 2, -half};
c = newc;
For i In {0:3}
  Line(c + i) = {p + i, p + (i + 1) % 4};
EndFor
s = news;
Curve Loop(s) = {c : c + 3};
Plane Surface(s) = {s};
shank[] = Extrude {0, 0, thick} { Surface{s}; };
body[] = BooleanUnion { Volume{1}; Delete; }{ Volume{2, 3, shank[1]}; Delete; };

// Blends along z: the shank's four corners with the ends, the lugs' four with the outer cylinder.
// A fillet makes a new volume, so that the body is kept by its number.
lug_x = lug_length / 2;
lug_y = Sqrt(big_outer^2 / 4 - lug_x^2);
all[] = Curve "*";
For i In {0 : #all[] - 1}
  b[] = BoundingBox Curve{all[i]};
  along_z = b[3] - b[0] < tiny && b[4] - b[1] < tiny;
  If (along_z && b[0] > lug_x + 1 && b[0] < centres && Fabs(b[1]) > 1)
    shanks[] += all[i];
  EndIf
  If (along_z && Fabs(Fabs(b[0]) - lug_x) < tiny && Fabs(Fabs(b[1]) - lug_y) < tiny)
    lugs[] += all[i];
  EndIf
EndFor
body[] = Fillet {body[0]}{shanks[], lugs[]}{blend, blend, blend, blend, lug_blend, lug_blend, lug_blend, lug_blend};

// Pockets: rounded at the corners and along the floor.
x[] = {pocket_from, pocket_to, pocket_to, pocket_from};
side_y[] = {-1, -1, 1, 1};
For side In {-1:1:2}
  z = side * (half - pocket_depth);
  p = newp;
  c = newc;
  For i In {0:3}
    Point(p + i) = {x[i], side_y[i] * (shank_big / 2 + taper * x[i] - flange), z};
  EndFor
  For i In {0:3}
    Line(c + i) = {p + i, p + (i + 1) % 4};
  EndFor
  s = news;
  Curve Loop(s) = {c : c + 3};
  Plane Surface(s) = {s};
  pocket[] = Extrude {0, 0, side * (pocket_depth + 1)} { Surface{s}; };
  edge[] = {};
  For i In {0:3}
    y = side_y[i] * (shank_big / 2 + taper * x[i] - flange);
    edge[] += Curve In BoundingBox {x[i] - tiny, y - tiny, -thick, x[i] + tiny, y + tiny, thick};
  EndFor
  pocket[] = Fillet {pocket[1]}{edge[]}{pocket_round};
  edge[] = Curve In BoundingBox {pocket_from - tiny, -shank_big, z - tiny, pocket_to + tiny, shank_big, z + tiny};
  pocket[] = Fillet {pocket[0]}{edge[]}{pocket_fillet};
  tools[] += pocket[0];
EndFor

// Bores, and the bolt holes through the lugs.
hole = newv;
Cylinder(hole) = {0, 0, -half - 1, 0, 0, thick + 2, big_bore / 2};
tools[] += hole;
hole = newv;
Cylinder(hole) = {centres, 0, -half - 1, 0, 0, thick + 2, small_bore / 2};
tools[] += hole;
For side In {-1:1:2}
  hole = newv;
  Cylinder(hole) = {-lug_x - 1, side * bolt_y, 0, lug_length + 2, 0, 0, bolt / 2};
  tools[] += hole;
EndFor
BooleanDifference { Volume{body[0]}; Delete; }{ Volume{tools[]}; Delete; }
