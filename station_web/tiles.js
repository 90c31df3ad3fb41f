/* The units' tiles. */
var tiles = (function () {
    'use strict';

    /* The colors of the units, 1 to 16, and whether their names are drawn in black. */
    var PALETTE = [
        ['#d32f2f', false], /* 1 red */
        ['#1e63d0', false], /* 2 blue */
        ['#2e7d32', false], /* 3 green */
        ['#ffd600', true],  /* 4 yellow */
        ['#ff8f00', true],  /* 5 orange */
        ['#8e3cc2', false], /* 6 purple */
        ['#00bcd4', true],  /* 7 cyan */
        ['#ffffff', true],  /* 8 white */
        ['#ff80ab', true],  /* 9 pink */
        ['#aeea00', true],  /* 10 lime */
        ['#8d5524', false], /* 11 brown */
        ['#00796b', false], /* 12 teal */
        ['#283593', false], /* 13 navy */
        ['#7f1d1d', false], /* 14 maroon */
        ['#b0bec5', true],  /* 15 silver */
        ['#5f6368', false]  /* 16 gray */
    ];
    var OTHER_COLOR = PALETTE[15];

    function make(unit) {
        var color = PALETTE[unit.color - 1] || OTHER_COLOR,
            made = document.createElement('div');
        made.className = 'unit';
        made.style.backgroundColor = color[0];
        made.style.color = color[1] ? '#000' : '#fff';
        made.textContent = unit.name;
        return made;
    }

    return { make: make, palette: PALETTE };
}());
