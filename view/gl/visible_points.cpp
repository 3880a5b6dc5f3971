#include "view/gl/visible_points.h"

#include <GL/gl.h>
#include <GL/glext.h>

namespace kestralum::view::gl {

std::vector<char> visible_points(std::span<const Vec3> places, const Camera& camera, const Scene& scene) {
    if (places.empty()) return {};
    std::vector<GLuint> queries(places.size());
    glGenQueries(static_cast<GLsizei>(queries.size()), queries.data());
    glDisable(GL_LIGHTING);
    glColor4f(0, 0, 0, 1);  // the alpha test lets it through
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    glDepthMask(GL_FALSE);
    glDepthFunc(GL_LEQUAL);
    glPointSize(3);
    // a little nearer: a place on a face is not hidden by it
    constexpr double nearer = 0.005;
    for (std::size_t k = 0; k < places.size(); ++k) {
        const Vec3 at = brought_nearer(camera, scene, places[k], nearer);
        glBeginQuery(GL_SAMPLES_PASSED, queries[k]);
        glBegin(GL_POINTS);
        glVertex3dv(at.data());
        glEnd();
        glEndQuery(GL_SAMPLES_PASSED);
    }
    glPointSize(1);
    glDepthMask(GL_TRUE);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    std::vector<char> visible(places.size());
    for (std::size_t k = 0; k < places.size(); ++k) {
        GLuint samples = 0;
        glGetQueryObjectuiv(queries[k], GL_QUERY_RESULT, &samples);
        visible[k] = samples > 0;
    }
    glDeleteQueries(static_cast<GLsizei>(queries.size()), queries.data());
    return visible;
}

}  // namespace kestralum::view::gl
