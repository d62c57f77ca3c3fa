<?xml version="1.0"?>
<!-- Hoja propia de la biblioteca para la ficha de libros (fichaWeb.xsl).
     Escrita para el dialecto XSL de borrador. -->
<xsl:stylesheet xmlns:xsl="http://www.w3.org/TR/WD-xsl" language="JScript">
  <xsl:template><xsl:apply-templates/></xsl:template>
  <xsl:template match="text()"><xsl:value-of/></xsl:template>

  <xsl:template match="/">
    <html>
      <head><title>Ficha</title></head>
      <body>
        <xsl:apply-templates select="FICHAS/FICHA"/>
      </body>
    </html>
  </xsl:template>

  <xsl:template match="FICHA">
    <table width="100%" class="fichaWeb">
      <tr><td colspan="2" class="titulo">
        <img src="Ruta-libro.gif" alt="Libro"/>
        <b><xsl:value-of select="ETIQUETAS/m245"/></b>
      </td></tr>
      <xsl:if test="ETIQUETAS/m100">
        <tr><td class="etiqueta">Autor:</td><td><xsl:value-of select="ETIQUETAS/m100"/></td></tr>
      </xsl:if>
      <xsl:if test="ETIQUETAS/m250">
        <tr><td class="etiqueta">Edición:</td><td><xsl:value-of select="ETIQUETAS/m250"/></td></tr>
      </xsl:if>
      <tr><td class="etiqueta">Pie de imprenta:</td><td><xsl:value-of select="ETIQUETAS/m260"/></td></tr>
      <xsl:if test="ETIQUETAS/m300">
        <tr><td class="etiqueta">Descripción:</td><td><xsl:value-of select="ETIQUETAS/m300"/></td></tr>
      </xsl:if>
      <xsl:if test="ETIQUETAS/*[nodeName() $ieq$ 'M020']">
        <tr><td class="etiqueta">ISBN:</td><td><xsl:value-of select="ETIQUETAS/m020[0]"/></td></tr>
      </xsl:if>
      <xsl:for-each select="ETIQUETAS/m500">
        <tr><td class="etiqueta"><xsl:if test="index() $eq$ 0">Notas:</xsl:if></td>
            <td><xsl:value-of/></td></tr>
      </xsl:for-each>
      <xsl:if test="ETIQUETAS/m650 | ETIQUETAS/m600">
        <tr><td class="etiqueta">Temas:</td><td>
          <xsl:for-each select="ETIQUETAS/m600 | ETIQUETAS/m650" order-by="+ .">
            <xsl:eval>formatIndex(childNumber(this), "1")</xsl:eval>. <xsl:value-of/>
            <xsl:if test="$not$ end()"><xsl:entity-ref name="nbsp"/>| </xsl:if>
          </xsl:for-each>
        </td></tr>
      </xsl:if>
      <xsl:for-each select="ETIQUETAS/m856">
        <tr><td class="etiqueta">En línea:</td><td>
          <a target="_blank"><xsl:attribute name="href"><xsl:value-of select="@url"/></xsl:attribute>
             <xsl:value-of/></a>
        </td></tr>
      </xsl:for-each>
    </table>
    <xsl:if test="EXISTENCIAS/EJEMPLAR">
      <table class="existencias" border="1" onmouseover="this.style.cursor='default'">
        <tr><th>No. Adquisición</th><th>Biblioteca</th><th>Vol.</th><th>Estado</th></tr>
        <xsl:for-each select="EXISTENCIAS/EJEMPLAR" order-by="+@Biblio; -@Vol">
          <tr>
            <td><xsl:value-of select="@NoAdq"/></td>
            <td><xsl:value-of select="@Biblio"/></td>
            <td><xsl:choose>
                  <xsl:when test="@Vol[. $gt$ 0]"><xsl:value-of select="@Vol"/></xsl:when>
                  <xsl:otherwise>-</xsl:otherwise>
                </xsl:choose></td>
            <td><xsl:choose>
                  <xsl:when test="@Acceso $ieq$ 's'">Disponible</xsl:when>
                  <xsl:otherwise>Sólo en sala</xsl:otherwise>
                </xsl:choose></td>
          </tr>
        </xsl:for-each>
      </table>
      <p class="nota">Ejemplares: <xsl:eval>this.selectNodes("EXISTENCIAS/EJEMPLAR").length</xsl:eval>
        <xsl:if test="$all$ EXISTENCIAS/EJEMPLAR/@Acceso $ieq$ 's'"> (todos disponibles)</xsl:if></p>
    </xsl:if>
  </xsl:template>

  <xsl:script><![CDATA[
    function cuenta(n) { return n.selectNodes("EXISTENCIAS/EJEMPLAR").length; }
  ]]></xsl:script>
</xsl:stylesheet>
