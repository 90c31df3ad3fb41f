/* The units' tiles. docs/station-page.md says how their colors were chosen. */
var tiles = (function () {
    'use strict';

    /* Colors 1 to 16: name, color of the tile, color of the unit's name, pattern. The pattern tells
       apart what a person with a color vision deficiency could take for the same color. */
    var PALETTE = [
        ['red', '#d12a0b', 'white', ''],
        ['blue', '#1565f0', 'white', ''],
        ['green', '#2f7e4a', 'white', 'barred'],
        ['yellow', '#f8f12a', 'black', ''],
        ['orange', '#ee730a', 'black', ''],
        ['purple', '#6a00b4', 'white', ''],
        ['cyan', '#12d6fc', 'black', ''],
        ['white', '#ffffff', 'black', ''],
        ['pink', '#fe89af', 'black', 'striped'],
        ['lime', '#97d13e', 'black', 'striped'],
        ['brown', '#6a402a', 'white', ''],
        ['teal', '#009688', 'black', ''],
        ['navy', '#09274c', 'white', ''],
        ['maroon', '#540a02', 'white', 'striped'],
        ['silver', '#c3cbd5', 'black', 'barred'],
        ['gray', '#5a5e63', 'white', '']
    ];
    var OTHER = 15;

    var palette = PALETTE.map(function (row) {
        return { name: row[0], ground: row[1], ink: row[2], pattern: row[3] };
    });

    /* A unit's tile; its color is any number. */
    function make(unit) {
        var look = palette[unit.color - 1] || palette[OTHER],
            tile = document.createElement('div');
        tile.className = look.pattern ? 'unit ' + look.pattern + ' ' + look.ink : 'unit';
        tile.style.backgroundColor = look.ground;
        tile.style.color = look.ink;
        tile.textContent = unit.name;
        return tile;
    }

    return { make: make, palette: palette };
}());
