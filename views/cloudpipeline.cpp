#include "cloudpipeline.h"

#include <vtkActor.h>
#include <vtkCamera.h>
#include <vtkCellArray.h>
#include <vtkFloatArray.h>
#include <vtkIdTypeArray.h>
#include <vtkLookupTable.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkProperty.h>
#include <vtkRenderer.h>
#include <vtkUnsignedCharArray.h>

#include <cstring>

namespace {
constexpr char kDepthName[] = "depth";
constexpr char kColourName[] = "colour";
}  // namespace

CloudPipeline::CloudPipeline() {
    // Float points: the frames are float, and a float array goes to the GPU
    // without conversion.
    points_->SetDataTypeToFloat();
    depth_->SetName(kDepthName);
    colours_->SetName(kColourName);
    colours_->SetNumberOfComponents(3);
    poly_->SetPoints(points_);
    poly_->SetVerts(verts_);
    poly_->GetPointData()->AddArray(colours_);
    poly_->GetPointData()->SetScalars(depth_);

    lut_->SetNumberOfTableValues(5000);
    lut_->SetHueRange(0.0, 0.67);  // near red, far blue, as in the depth image
    lut_->Build();
    mapper_->SetInputData(poly_);
    mapper_->SetLookupTable(lut_);
    mapper_->SetScalarModeToUsePointData();
    mapper_->SetColorModeToMapScalars();
    mapper_->SetScalarRange(0, 5000);
    mapper_->ScalarVisibilityOn();
    actor_->SetMapper(mapper_);
    actor_->GetProperty()->SetPointSize(1);
    renderer_->AddActor(actor_);
    renderer_->SetBackground(0.0, 0.0, 0.0);
}

CloudPipeline::~CloudPipeline() = default;

void CloudPipeline::resize(int count) {
    if (count == count_) return;
    count_ = count;
    points_->SetNumberOfPoints(count);
    depth_->SetNumberOfValues(count);
    colours_->SetNumberOfTuples(count);
    std::memset(points(), 0, std::size_t(count) * 3 * sizeof(float));
    std::memset(depth(), 0, std::size_t(count) * sizeof(float));
    std::memset(colours(), 0, std::size_t(count) * 3);

    vtkNew<vtkIdTypeArray> offsets;
    vtkNew<vtkIdTypeArray> connectivity;
    offsets->SetNumberOfValues(count + 1);
    connectivity->SetNumberOfValues(count);
    vtkIdType* off = offsets->GetPointer(0);
    vtkIdType* conn = connectivity->GetPointer(0);
    for (vtkIdType i = 0; i < count; ++i) {
        off[i] = i;
        conn[i] = i;
    }
    off[count] = count;
    verts_->SetData(offsets, connectivity);
    markModified();
}

float* CloudPipeline::points() {
    return static_cast<vtkFloatArray*>(points_->GetData())->WritePointer(0, vtkIdType(count_) * 3);
}
float* CloudPipeline::depth() { return depth_->WritePointer(0, count_); }
uint8_t* CloudPipeline::colours() { return colours_->WritePointer(0, vtkIdType(count_) * 3); }

void CloudPipeline::markModified() {
    // Only what a frame wrote: the poly data's time already includes its
    // points and point data, and an unused colour array need not reach the GPU.
    points_->GetData()->Modified();
    points_->Modified();
    if (coloured_) {
        colours_->Modified();
    } else {
        depth_->Modified();
    }
}

void CloudPipeline::useColours(bool on) {
    if (on == coloured_) return;
    coloured_ = on;
    poly_->GetPointData()->SetActiveScalars(on ? kColourName : kDepthName);
    if (on) {
        mapper_->SetColorModeToDirectScalars();
    } else {
        mapper_->SetColorModeToMapScalars();
    }
}

void CloudPipeline::setScalarRange(double min, double max) { mapper_->SetScalarRange(min, max); }

void CloudPipeline::applyCamera(const CameraPreset& preset) {
    vtkNew<vtkCamera> camera;
    camera->SetPosition(preset.position.data());
    camera->SetFocalPoint(preset.focalPoint.data());
    camera->SetViewUp(preset.viewUp.data());
    camera->Modified();
    renderer_->SetActiveCamera(camera);
    renderer_->ResetCameraClippingRange();
}

vtkRenderer* CloudPipeline::renderer() const { return renderer_.Get(); }
vtkPolyData* CloudPipeline::polyData() const { return poly_.Get(); }
vtkPolyDataMapper* CloudPipeline::mapper() const { return mapper_.Get(); }
