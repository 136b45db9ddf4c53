// The VTK side of the 3D view: point arrays, scalars, mapper, actor and
// renderer, without the widget. The point count only changes with the
// dimensions, so the vertex cells (and the GPU index buffer built from them)
// are made once per change; frames are written straight into the arrays.
#pragma once

#include <vtkNew.h>
#include <vtkSmartPointer.h>

#include <cstdint>

#include "cloudcamera.h"

class vtkActor;
class vtkCellArray;
class vtkFloatArray;
class vtkLookupTable;
class vtkPoints;
class vtkPolyData;
class vtkPolyDataMapper;
class vtkRenderer;
class vtkUnsignedCharArray;

class CloudPipeline {
public:
    CloudPipeline();
    ~CloudPipeline();
    CloudPipeline(const CloudPipeline&) = delete;
    CloudPipeline& operator=(const CloudPipeline&) = delete;

    // Sizes every array for `count` points; new and old points go to the origin.
    void resize(int count);
    int size() const { return count_; }

    // Raw arrays of the current size: x, y, z per point; depth per point;
    // R, G, B per point. Call markModified() after writing.
    float* points();
    float* depth();
    uint8_t* colours();
    void markModified();

    // Colour by the points' own colour instead of their depth.
    void useColours(bool on);
    bool usesColours() const { return coloured_; }
    void setScalarRange(double min, double max);

    void applyCamera(const CameraPreset& preset);

    vtkRenderer* renderer() const;
    vtkPolyData* polyData() const;
    vtkPolyDataMapper* mapper() const;

private:
    int count_ = 0;
    bool coloured_ = false;
    vtkNew<vtkPoints> points_;
    vtkNew<vtkFloatArray> depth_;
    vtkNew<vtkUnsignedCharArray> colours_;
    vtkNew<vtkCellArray> verts_;
    vtkNew<vtkPolyData> poly_;
    vtkNew<vtkLookupTable> lut_;
    vtkNew<vtkPolyDataMapper> mapper_;
    vtkNew<vtkActor> actor_;
    vtkNew<vtkRenderer> renderer_;
};
