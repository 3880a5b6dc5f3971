// Pipe flange with a neck: raised face, eight bolt holes, fillet between plate and neck.
// Lengths in mm. The axis is z; the raised face lies in z = 0, the end of the neck in z = total.
// scripts/cad_parts makes flange.step from it.
//
// Faces of flange.step by their numbers (area in mm2; place):
//   16              raised face, z = 0 (8246.681)
//   12              plate round the raised face, z = 3 (16106.946)
//    1              back of the plate, under the nuts, z = 20 (18352.828)
//   17              end of the neck, z = 60 (1621.062)
//   18              bore (15079.645)
//   10  11   9   8  bolt holes (961.327 each) at 22.5, 67.5, 112.5, 157.5 degrees from x ...
//    4   3   5   7  ... and at 202.5, 247.5, 292.5, 337.5 degrees
//    2              rim (10681.415)
//    6              fillet between plate and neck (3643.743)
SetFactory("OpenCASCADE");

outer = 200;       // diameter of the plate
plate = 20;        // thickness of the plate, raised face included
face = 130;        // diameter of the raised face
face_height = 3;
circle = 160;      // diameter of the circle of the bolts
bolt = 18;         // diameter of the bolt holes
bolts = 8;
hub = 106;         // diameter of the neck where it leaves the plate
pipe = 92;         // diameter of the neck at its end
bore = 80;         // diameter of the bore
total = 60;        // from the raised face to the end of the neck
straight = 12;     // length of the neck's cylindrical end
fillet = 8;        // radius between plate and neck

tiny = 0.01;

// Half a section in the plane y = 0, turned once about the axis.
Point(1) = {bore / 2, 0, 0};
Point(2) = {face / 2, 0, 0};
Point(3) = {face / 2, 0, face_height};
Point(4) = {outer / 2, 0, face_height};
Point(5) = {outer / 2, 0, plate};
Point(6) = {hub / 2, 0, plate};
Point(7) = {pipe / 2, 0, total - straight};
Point(8) = {pipe / 2, 0, total};
Point(9) = {bore / 2, 0, total};
For i In {1:8}
  Line(i) = {i, i + 1};
EndFor
Line(9) = {9, 1};
Curve Loop(1) = {1:9};
Plane Surface(1) = {1};
body[] = Extrude { {0, 0, 1}, {0, 0, 0}, 2 * Pi } { Surface{1}; };
Recursive Delete { Surface{1}; }
edge[] = Curve In BoundingBox {-hub / 2 - 1, -hub / 2 - 1, plate - tiny, hub / 2 + 1, hub / 2 + 1, plate + tiny};
body[] = Fillet {body[1]}{edge[]}{fillet};

For i In {1:bolts}
  angle = (i - 0.5) * 2 * Pi / bolts;
  hole = newv;
  Cylinder(hole) = {circle / 2 * Cos(angle), circle / 2 * Sin(angle), face_height - 1, 0, 0, plate - face_height + 2, bolt / 2};
  holes[] += hole;
EndFor
BooleanDifference { Volume{body[0]}; Delete; }{ Volume{holes[]}; Delete; }
