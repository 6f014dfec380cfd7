// SVG plot of the axis values along a toolpath.
